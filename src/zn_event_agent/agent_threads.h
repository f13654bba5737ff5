// Start-up of the agent's worker threads and the main thread's wait.
#pragma once

// Creates the workers in their fixed order; the first failure stops the
// sequence and returns -1 (threads already running go on).
int thread_init();
// Joins the created workers in their order of creation.
void thread_join();
