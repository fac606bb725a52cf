/* The gateway's logger. */
#ifndef HBS_PLATFORM_LOGGER_H
#define HBS_PLATFORM_LOGGER_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Static descriptor of one place that logs: severity code (0, 1, 3, 9 or 15), module number, 0. */
typedef struct hbs_log_site {
    uint32_t severity;
    uint32_t module;
    uint32_t reserved;
} hbs_log_site;

/* UPCALL: highest = the highest severity code that the logger takes; UINT32_MAX = everything. Any
 * thread; it must make no call of the platform. */
typedef void (*logger_level_cb)(uint32_t highest);

/* Asks to be told what the logger takes: the callback is called before this returns, and again on each
 * change. What is logged above that is dropped, so a caller need not build it. callback [in] kept, one at a
 * time; null ends it. A gateway whose logger takes everything does nothing here. */
void logger_register_level_cb(logger_level_cb callback);

/* Formats and sends one message. site [in] static, kept by address; options is 0; format as printf.
 * Never fails towards the caller. Any thread. */
void logger_build_send_log_msg(const hbs_log_site *site, int options, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
