// Which of a box's links is taken for the LAN.
#include "platform/linux/lan_fitness.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

enum { unfit, fit }; // whether it has an address and may be the LAN

lan_link make(const char *name, const char *kind, int index, int is_fit, int master = 0, int carrier = 0)
{
    lan_link link = {"", "", index, master, carrier, is_fit == fit, is_fit == fit};
    strcpy(link.name, name);
    strcpy(link.kind, kind);
    return link;
}

TEST(lan, is_the_link_that_most_speaks_for)
{
    const lan_link docker = make("docker0", "bridge", 1, fit), container = make("veth7", "veth", 2, unfit, 1);
    const struct {
        const char *lan;
        std::vector<lan_link> links;
    } boxes[] = {
        {"nothing", {make("eth0", "", 3, unfit), make("br0", "bridge", 4, unfit)}},
        {"br-lan", {docker, container, make("eth1", "", 3, fit), make("br-lan", "bridge", 4, fit)}},
        {"br-lan", {make("eth0", "", 3, unfit, 4), make("br-lan", "bridge", 4, unfit)}},
        {"eth1", {docker, container, make("eth1", "", 3, fit)}},
        {"br0", {docker, make("eth1", "", 3, fit), make("lan1", "dsa", 4, unfit, 5), make("br0", "bridge", 5, fit)}},
        {"br-lan.1",
         {docker, container, make("eth0", "", 3, unfit, 4), make("br-lan", "bridge", 4, unfit),
          make("br-lan.1", "vlan", 5, fit, 0, 4)}},
        {"bond0.10",
         {docker, make("eth0", "", 3, unfit, 4), make("bond0", "bond", 4, unfit), make("bond0.10", "vlan", 5, fit, 0, 4)}},
        {"br0.10",
         {docker, make("eth0", "", 3, unfit, 4), make("bond0", "bond", 4, unfit), make("bond0.5", "vlan", 5, unfit, 6, 4),
          make("br0", "bridge", 6, unfit), make("br0.10", "vlan", 7, fit, 0, 6)}},
    };
    for (const auto &box : boxes) {
        int fitness = 0;
        const lan_link *lan = fittest_lan(box.links.data(), box.links.size(), &fitness);
        EXPECT_STREQ(lan ? lan->name : "nothing", box.lan);
        EXPECT_EQ(fitness > 0, lan != nullptr) << box.lan;
    }
}

} // namespace
