#include "feed/rights.h"

#include <errno.h>
#include <linux/capability.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

void give_up_rights(bool net_admin)
{
    constexpr unsigned long last_possible = 63;
    bool done = prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
    // Only root may do this, and only root needs it: of others a program that they start gets no more than they have.
    for (unsigned long right = 0; right <= last_possible; right++)
        if (!net_admin || right != CAP_NET_ADMIN)
            prctl(PR_CAPBSET_DROP, right, 0, 0, 0);

    // With them go the ambient ones. Where it is refused, nft keeps what it needs.
    __user_cap_header_struct version{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3] = {};
    done = done && syscall(SYS_capget, &version, rights) == 0;
    uint32_t kept = net_admin ? rights[0].permitted & 1u << CAP_NET_ADMIN : 0;
    rights[0] = {kept, kept, kept};
    rights[1] = {};
    done = done && syscall(SYS_capset, &version, rights) == 0;
    // nft, which removes the rules at the end, needs it too.
    if (kept != 0)
        done = done && prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_ADMIN, 0, 0) == 0;
    if (!done)
        fprintf(stderr, "appident-feed: rights that are not needed could not be given up: %s\n", strerror(errno));
}
