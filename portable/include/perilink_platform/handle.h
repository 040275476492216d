/* Handles of files, events, timers and threads; events, timers, threads, waits and time.
 *
 * One table holds all handles. A closed handle's value isn't used again, so that every later use of
 * it fails with ERROR_INVALID_HANDLE. */
#ifndef PERILINK_PLATFORM_HANDLE_H_
#define PERILINK_PLATFORM_HANDLE_H_

#include "perilink_platform/types.h"

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64u

#define CREATE_WAITABLE_TIMER_MANUAL_RESET 0x1u
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x2u
#define TIMER_ALL_ACCESS 0x1F0003u

PERILINK_PLATFORM_BEGIN

/* Closes a file, event, timer or thread. FALSE with ERROR_INVALID_HANDLE for anything else, the
 * handle of a registry key or device information set included. Reads that are pending on a closed
 * file are aborted, which may be completed slightly after this call. A closed thread runs on. */
BOOL WINAPI CloseHandle(HANDLE handle);

/* An event, signalled from the start if `initial_state`. A wait resets it unless `manual_reset`.
 * Null on failure. `attributes` and `name` must be null (ERROR_INVALID_PARAMETER): events are
 * unnamed. */
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual_reset, BOOL initial_state,
                           LPCWSTR name);
/* Signals an event: releases all waiting threads (manual reset) or the one that has waited longest.
 * FALSE with ERROR_INVALID_HANDLE for a handle that is no event. */
BOOL WINAPI SetEvent(HANDLE event);
/* Makes an event unsignalled. */
BOOL WINAPI ResetEvent(HANDLE event);

/* Waits until an event is signalled, a timer's time has come, a thread has ended or the last I/O of
 * a file has completed, for at most `milliseconds` (INFINITE: for ever). WAIT_OBJECT_0,
 * WAIT_TIMEOUT, or WAIT_FAILED with ERROR_INVALID_HANDLE. In virtual time a wait of 0 on something
 * unsignalled takes a few microseconds and lets other ready threads run. Closing a handle doesn't
 * end the waits on it. */
DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds);
/* The same for one of `count` objects (1 to MAXIMUM_WAIT_OBJECTS): WAIT_OBJECT_0 and the index of
 * the first one that is signalled, which alone is reset. `wait_all` must be FALSE
 * (ERROR_INVALID_PARAMETER). */
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                    DWORD milliseconds);

/* A timer that isn't set. A wait resets it unless it is made with the flag for manual reset; the
 * flag for high resolution changes nothing, all timers here have it. Null on failure. `attributes`
 * and `name` must be null, `access` TIMER_ALL_ACCESS (ERROR_INVALID_PARAMETER). */
HANDLE WINAPI CreateWaitableTimerExW(LPSECURITY_ATTRIBUTES attributes, LPCWSTR name, DWORD flags,
                                     DWORD access);

typedef void(WINAPI* PTIMERAPCROUTINE)(LPVOID argument, DWORD low, DWORD high);

/* Makes the timer unsignalled until `due_time` has passed, which is in units of 100 ns, 0 or
 * negative: counted from now. All other arguments must be 0 (ERROR_INVALID_PARAMETER). A wait that
 * has begun on another thread keeps to the time that it found. */
BOOL WINAPI SetWaitableTimer(HANDLE timer, const LARGE_INTEGER* due_time, LONG period,
                             PTIMERAPCROUTINE routine, LPVOID argument, BOOL resume);

typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID parameter);

/* Starts a thread. Null on failure. `attributes` must be null and `flags` 0
 * (ERROR_INVALID_PARAMETER); `stack_size` 0 means the default; `thread_id` may be null. The
 * thread's windows are destroyed and its pending reads cancelled when it ends. */
HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack_size,
                           LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                           LPDWORD thread_id);

/* The calling thread's number, which no other thread of the process has while it runs; never 0. */
DWORD WINAPI GetCurrentThreadId(void);

/* Suspends the calling thread; INFINITE for ever. Sleep(0) lets other ready threads run. */
void WINAPI Sleep(DWORD milliseconds);

/* Milliseconds of the world's monotonic clock. In virtual time a read takes a few microseconds and
 * never lets another thread run. */
ULONGLONG WINAPI GetTickCount64(void);

/* The world's calendar as local time: UTC in virtual time, the system's time zone otherwise. */
void WINAPI GetLocalTime(LPSYSTEMTIME time);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_HANDLE_H_ */
