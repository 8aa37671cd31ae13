// Hits and flows as text: for people, or one JSON object a line. Names were checked where they came in, so nothing needs
// escaping.
#ifndef FEED_PRINTING_H
#define FEED_PRINTING_H

#include "feed/classifier.h"

// Each line ends with a line feed. `app` is the app's entry; for a flow null when it is unknown.
std::string hit_line(const hit &found, const app_entry &app);
std::string hit_json(const hit &found, const app_entry &app);
std::string flow_line(const flow_report &found, const app_entry *app);
std::string flow_json(const flow_report &found, const app_entry *app);

// What was seen, in one line.
std::string summary_line(const feed_counters &counts);

#endif
