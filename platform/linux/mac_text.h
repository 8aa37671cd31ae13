// MAC texts as this router writes them: "AA-BB-CC-DD-EE-FF".
#ifndef PLATFORM_LINUX_MAC_TEXT_H
#define PLATFORM_LINUX_MAC_TEXT_H

constexpr int mac_text_room = 18;

void write_mac_text(const unsigned char *mac, char (&out)[mac_text_room]);
// Six bytes from a text with dashes or colons, in either case. False for anything else.
bool read_mac_text(const char *text, unsigned char *mac);

#endif
