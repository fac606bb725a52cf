/* What the DHCP servers tell of leases. */
#ifndef HBS_PLATFORM_LEASES_H
#define HBS_PLATFORM_LEASES_H

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Whether a lease that is told again may lack texts (host name, OUI, serial number, product class) that were
 * told before: one that is empty leaves what is known. Returns 1 or 0; 0 has it take them away. The same for
 * the life of the process. */
int LEASES_MayLackTexts(void);

/* Whether the servers tell leases again by themselves, also those of devices that will never renew them.
 * Returns 1 or 0; 1 keeps the end of such a lease from taking away what users have fixed for its device, and
 * one whose device no switch knows from taking away where that is, or counting as its join. The same for the
 * life of the process. */
int LEASES_AreToldAgain(void);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
