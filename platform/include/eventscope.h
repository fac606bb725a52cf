/* How long one thing that happened is being dealt with. */
#ifndef HBS_PLATFORM_EVENTSCOPE_H
#define HBS_PLATFORM_EVENTSCOPE_H

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* The calling thread deals with one datagram, neighbour message or line of a lease notice from here on; pairs
 * may lie within each other. Until the outermost EVENT_End a platform that keeps answers in memory need not
 * look again, for this thread, whether they still hold. One that keeps none does nothing. */
void EVENT_Begin(void);
void EVENT_End(void);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
