#pragma once

#include <sys/types.h>

/* Replaces the script in the memory of a process that runs the client, as whoever may trace it can.
 * 1 when done; else 0 and errno, ENOENT when there is no script. */
int rewriteScript(pid_t process, const char* script);
