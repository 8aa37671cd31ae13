// The rules that log what the feed wants to see, in an nft table of its own.
//
// An answer that the router itself gives has no link address, and over IPv6 nothing else joins it to the device: the address
// may be link-local, or one that never sends anything outside. So questions over IPv6 are logged as well, headers only: they
// bring the link address before the answer comes. Reading the kernel's IPv6 neighbours would bring it too, but after the
// answer, and would take a whole dump for each address that is new.
#ifndef FEED_NFLOG_RULES_H
#define FEED_NFLOG_RULES_H

#include <stdint.h>

constexpr const char *own_table = "appident_feed"; // of the family inet
// Netfilter's log group of the rules.
constexpr uint16_t log_group = 5306;
// So many packets of a connection are logged; the rule says the same.
constexpr uint32_t packets_logged = 12;
// Of a packet so many bytes: a hello of two segments that the network card joined is whole.
constexpr uint32_t bytes_logged = 4096;

// Of a question so many, for the headers.
constexpr uint32_t question_bytes_logged = 96;

// Puts the table there, in place of one that another run left. False after a message on standard error.
bool load_log_rules();
void remove_log_rules();

#endif
