// A scene: steps in a household's life, each told to the letter, and each with the memory that the test allows.
//
// What a step tells: a line "20:00:00 step", then with two spaces before them the lines that were logged, what the router's
// services were asked, what left the daemon, and the records that changed (see text_of() and text of devices in scene.cpp).
#ifndef TESTS_UNIT_SCENE_H
#define TESTS_UNIT_SCENE_H

#include "tests/kit/config_files.h"

#include <functional>

// Refuses the daemon's and its JSON library's allocations from the `first` one to the one before `end`, counted in steps only.
struct memory_script {
    bool counting;
    long reached, first, end;
    int records; // that malloc gave room for
};
extern memory_script memory;

// What a scene tells: nothing, or all but look-ups of roles and dumps, of which it gives the number, or these in full as well.
enum telling : unsigned { nothing = 0, in_short = 1, role_look_ups = 2, dumps = 4 };

struct scene : household {
    explicit scene(unsigned what_is_told) : tells(what_is_told) {}
    void TestBody() override {}
    using household::app, household::arrive, household::feed_traffic, household::know, household::leave, household::record;

    // One thing that happens to the daemon.
    void happens(const std::string &what, const std::function<void()> &step);
    void comes(u32 app, u32 rule, const lan_device &device = tablet); // the rule's last byte is the flow's behaviour as well
    void router_says(const std::string &what, const std::string &message);
    void pays(const std::string &what, u32 app, u32 rule);
    void passes(u32 count, u32 seconds = 60);
    void uses(u32 app, u32 minutes, const lan_device &device = tablet); // a continuing hit and a pass a minute
    void asks(unsigned int id, std::string text = "");
    // Steps that lead to what the scene is about, not told.
    void before(const std::function<void()> &steps);

    std::string text() const { return told.str(); }

private:
    void tell(const std::string &what);
    void tell_log();
    void tell_asked();
    void tell_records();

    unsigned tells;
    std::ostringstream told;
    std::map<std::string, std::string> records;
};

#endif
