// doctor's look at appident-feed: is it there, does it see traffic, and what keeps it from telling apps?
#include "tools/appidentctl/finding.h"
#include "tools/appidentctl/time_text.h"

#include <unistd.h>

namespace {

constexpr const char *how_to_start =
    "start it: 'systemctl enable --now appident-feed' or '/etc/init.d/appident-feed enable' and 'start'";

bool is_installed()
{
    return access(APPIDENT_FEED_PROGRAM, X_OK) == 0;
}

finding check_missing_feed(const evidence &seen)
{
    bool is_told = accounting_messages(seen) > 0;
    if (is_installed())
        return {is_told ? warning : fault, "appident-feed is installed, and not running", how_to_start};
    if (is_told)
        return {fine, "not installed, and not needed: something else tells the apps", ""};
    return {warning, "not installed", "install appident-feed, unless this is a vendor's kernel that tells the apps"};
}

} // namespace

finding check_feed(const evidence &seen)
{
    if (!seen.feed.found)
        return check_missing_feed(seen);
    if (!owner_lives(seen.feed))
        return {fault, "process " + std::to_string(seen.feed.owner) + " has ended; the figures are those of its run",
                std::string(how_to_start) + "; its messages are in the journal or in 'logread'"};
    u32 up = seconds_since(seen[feed_started_uptime]);
    severity quiet = level_after_quiet(seen[feed_started_uptime]);
    if (seen[feed_packets] == 0)
        return {quiet, "no packet seen in " + span_text(up), "does this box forward what the devices send? a switch does not"};
    if (seen[feed_flows] == 0)
        return {quiet, std::to_string(seen[feed_packets]) + " packets, none between the LAN and outside",
                "tell it what the LAN is: '--lan' in /etc/default/appident-feed or /etc/config/appident-feed"};
    return {fine,
            std::to_string(seen[feed_flows]) + " connections, " + told_text(seen.feed) + "; " +
                std::to_string(seen[feed_messages_sent]) + " messages sent",
            ""};
}

finding check_feed_losses(const evidence &seen)
{
    if (seen[feed_messages_failed])
        return {fault, std::to_string(seen[feed_messages_failed]) + " messages of the feed could not be sent",
                "it needs the right CAP_NET_ADMIN; is it run by its unit or its init script?"};
    return expect_none(seen[feed_log_lost] + seen[feed_log_undecodable] + seen[feed_dumps_failed],
                       "packets or sums that did not reach the feed", "find what keeps the box busy; apps may be missed");
}

finding check_feed_tables(const evidence &seen)
{
    u32 flows = seen[feed_flow_table_full];
    return expect_none(flows + seen[feed_inspections_full] + seen[feed_device_table_full] + seen[feed_uses_full],
                       "times that a table of the feed was full",
                       flows ? "start it with '--max-flows 32768'"
                             : "too many devices or connections at once; some use is not counted");
}

finding check_offloading(const evidence &seen)
{
    u32 rules = seen[feed_offload_unguarded];
    if (rules == 0)
        return {fine, "no rule hides connections from the feed", ""};
    return {fault, std::to_string(rules) + " firewall rules offload connections before their app can be told, or uncounted",
            "write 'ct packets > 12' before 'flow add' in them, and 'counter;' in the flow table itself; on OpenWrt switch off "
            "flow_offloading in /etc/config/firewall"};
}

finding check_app_rules(const evidence &seen)
{
    return expect_none(seen[feed_lines_skipped], "lines of apps.conf that make no sense, or files that cannot be read",
                       "the feed names them at its start, in the journal or in 'logread'");
}
