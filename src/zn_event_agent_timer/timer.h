// Timed tasks: the scheduler outside the agent sends the store path of a
// task that fell due, one text per datagram on "/tmp/zn_event_agent_timer",
// and the agent carries the task out.
#pragma once

#include "agent_log.h"

constexpr const char *kTimerSocket = "/tmp/zn_event_agent_timer";

// Thread entry; returns only when its socket can't be set up.
void *timerEventHandler(void *arg);

// Hands the text to the task whose path it holds, the first of the table in
// timer_dispatch.cpp that is a substring of it. -1 for null or empty text,
// otherwise 0, whether the task succeeded or not.
int timerEventDispatch(const char *text);

// The row of the task table in timer_dispatch.cpp whose path the text holds,
// the first found; -1 for none.
int timerTaskOf(const char *text);
// The instance index of a task path: strtol's reading of what follows its
// last '.', 0 when no number does. False, and logged as the calling handler,
// for null text or text without a '.'.
bool timerTaskIndex(const char *text, int *index, CallSite caller = {});

// The task handlers take the index behind the last '.' of text (strtol's
// reading of it). 0, or -1 when the task couldn't be done.
// Sets the sleep mode to Enable of the SleepTimer object of that index.
int sleepTimerHandler(const char *text);
// The operator's handlers; their failures are logged, not returned.
int cmccTimedTaskHandler(const char *text);
int cmccDeviceLimitHandler(const char *text);
