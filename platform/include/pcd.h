/* Process controller: the gateway's supervisor of long-lived processes. */
#ifndef HBS_PLATFORM_PCD_H
#define HBS_PLATFORM_PCD_H

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Registers this process and the function to run on a fatal exception.
 * name [in]     process name, NUL-terminated; not kept after the call.
 * handler [in]  UPCALL: called with the signal number, on the thread that faulted.
 * Returns 0, or -1 when the controller refused. */
int PCD_api_register_exception_handlers(const char *name, void (*handler)(int signal_number));

/* Tells the controller that this process is ready to serve. Effect on the outside: journalled by
 * the host platform as "pcd ready". Returns 0, or -1 when the controller refused. */
int PCD_api_send_process_ready(void);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
