/* Stands before what the Linux platform asks of the kernel: a file below /root says what else it answers.
 *
 *   no-sockets   there is no socket for datagrams to the daemon, for the platform itself
 *   old-kernel   a bridge does not answer a question for one MAC address, as before Linux 5.0
 *   late         it does not answer such a question before the file is gone */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

typedef int (*socket_call)(int, int, int);
typedef ssize_t (*sendto_call)(int, const void *, size_t, int, const struct sockaddr *, socklen_t);

static int is_in_platform(const void *caller) {
    Dl_info found;
    return dladdr(caller, &found) != 0 && strstr(found.dli_fname, "libhbs_platform") != NULL;
}

int socket(int family, int type, int protocol) {
    if (family == AF_UNIX && type == (SOCK_DGRAM | SOCK_CLOEXEC) && is_in_platform(__builtin_return_address(0)) &&
        access("/root/no-sockets", F_OK) == 0) {
        errno = EMFILE;
        return -1;
    }
    return ((socket_call)dlsym(RTLD_NEXT, "socket"))(family, type, protocol);
}

static int asks_for_one(const void *bytes, size_t size) {
    struct {
        struct nlmsghdr head;
        struct ndmsg body;
    } request;
    if (size < sizeof request)
        return 0;
    memcpy(&request, bytes, sizeof request);
    return request.head.nlmsg_type == RTM_GETNEIGH && request.body.ndm_family == AF_BRIDGE &&
           (request.head.nlmsg_flags & NLM_F_DUMP) != NLM_F_DUMP;
}

/* A question that no kernel answers gets the same refusal. */
ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const struct sockaddr *to, socklen_t length) {
    char other[1024];
    if (to != NULL && to->sa_family == AF_NETLINK && asks_for_one(bytes, size))
        while (access("/root/late", F_OK) == 0)
            (void)poll(NULL, 0, 10);
    if (to != NULL && to->sa_family == AF_NETLINK && size <= sizeof other && asks_for_one(bytes, size) &&
        access("/root/old-kernel", F_OK) == 0) {
        memcpy(other, bytes, size);
        ((struct nlmsghdr *)other)->nlmsg_type = RTM_GETMULTICAST;
        bytes = other;
    }
    return ((sendto_call)dlsym(RTLD_NEXT, "sendto"))(fd, bytes, size, flags, to, length);
}
