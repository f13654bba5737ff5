// Start-up of the agent's worker threads and the main thread's wait.
#pragma once

#include <pthread.h>

// Creates the workers in their fixed order; the first failure stops the
// sequence and returns -1 (threads already running go on).
int thread_init();
// Joins the created workers in their order of creation.
void thread_join();

// Operator province, written once before any worker exists.
extern char province[32];

// The worker entries, by subsystem.
void *btn_handler(void *arg);
void *ponEventHandler(void *arg);
void *kernelEventHandler(void *arg);
void *kernelKobjectEventHandler(void *arg);
void *zn_event_lanhost_thread(void *arg);
void *timerEventHandler(void *arg);
