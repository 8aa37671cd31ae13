#include "simulator/plan.h"

#include "simulator/world/kernel_messages.h"

#include <algorithm>

namespace {

void add_usage(std::vector<step> &steps, const usage &use)
{
    size_t turn = 0;
    for (moment at = use.from;; at += use.every) {
        bool last = at >= use.to;
        u32 mark = turn == 0 ? start_mark : 0;
        steps.push_back({step_hit, last ? use.to : at, use.device, use.app, use.rules[turn++ % use.rules.size()] | mark, use.up,
                         use.down, nullptr});
        if (last)
            return;
    }
}

// The payment app's flows come first: they open the gate of the payments that need it.
void add_payment(std::vector<step> &steps, const household_event &event)
{
    for (u32 flow = 0; flow < event.flows; flow++)
        steps.push_back({step_hit, event.at - 2, event.device, event.number, start_mark, 500, 500, nullptr});
    for (u32 rule : event.rules)
        steps.push_back({step_payment_rule, event.at, event.device, event.number, rule, 0, 0, &event});
}

} // namespace

std::vector<step> plan_of(const scenario &household)
{
    std::vector<step> steps;
    for (const usage &use : household.usages)
        add_usage(steps, use);
    for (const app_entry &app : household.apps)
        if (app.known_from > household.start)
            steps.push_back({step_catalogue, app.known_from, 0, app.id, 0, 0, 0, nullptr});
    for (const household_event &event : household.events) {
        if (event.kind == event_payment)
            add_payment(steps, event);
        else
            steps.push_back({step_event, event.at, event.device, 0, 0, 0, 0, &event});
    }
    std::stable_sort(steps.begin(), steps.end(), [](const step &a, const step &b) { return a.at < b.at; });
    return steps;
}
