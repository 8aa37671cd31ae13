// The rights of the process: a feed that reads what strangers send has no more of them than it needs.
#ifndef FEED_RIGHTS_H
#define FEED_RIGHTS_H

// Gives up every capability, and the way to new ones, for this thread and the programs that it starts. `net_admin`: keeps
// CAP_NET_ADMIN where it is there. What cannot be given up is told on standard error.
void give_up_rights(bool net_admin);

#endif
