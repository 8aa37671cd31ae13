#include "simulator/report.h"

#include <algorithm>
#include <map>
#include <stdio.h>
#include <tuple>

namespace {

constexpr const char *class_names[] = {"", "games", "video and social", "everything else", "learning", "eye protection"};
constexpr const char *pay_names[] = {"unknown", "Alipay", "WeChat Pay", "QQ Pay", "Apple Pay"};

template <size_t count> const char *name_in(const char *const (&names)[count], u32 index)
{
    return index < count ? names[index] : "unknown";
}

const char *device_name(const scenario &household, int device)
{
    return device < 0 ? "an unknown device" : household.devices[static_cast<size_t>(device)].name.c_str();
}

std::string subject_text(const scenario &household, const outcome &one)
{
    if (one.kind == outcome_addiction)
        return name_in(class_names, one.subject);
    if (one.kind == outcome_payment)
        return name_in(pay_names, one.subject);
    return one.subject ? app_name(household, one.subject) : "nothing";
}

std::string minutes_text(u32 minutes)
{
    return std::to_string(minutes) + " min";
}

std::string outcome_text(const outcome &one)
{
    switch (one.kind) {
    case outcome_online:
        return "online";
    case outcome_using:
        return "using, " + minutes_text(one.amount);
    case outcome_offline:
        return "offline after " + minutes_text(one.amount);
    case outcome_history:
        return "history: " + minutes_text(one.amount);
    case outcome_late_history:
        return "history of the day before: " + minutes_text(one.amount);
    case outcome_addiction:
        return "ALERT: used " + minutes_text(one.amount) + " today";
    case outcome_eye_protection:
        return "ALERT: " + minutes_text(one.amount) + " without a break";
    case outcome_daydayup:
        return "good: started to learn";
    case outcome_payment:
        return "PAYMENT made";
    default:
        return "answer: " + (one.subject ? "in use for " + minutes_text(one.amount) : std::string("not in use"));
    }
}

void tell(const scenario &household, moment at, int device, const std::string &subject, const std::string &what)
{
    printf("%s  %-16s %-18s %s\n", clock_text(at).c_str(), device_name(household, device), subject.c_str(), what.c_str());
    fflush(stdout);
}

// Sequences of amounts, side by side: what one device shows of one subject in one way.
typedef std::tuple<int, outcome_kind, u32> place; // device, kind, subject
struct pairing {
    std::vector<const outcome *> expected, found;
};

std::map<place, pairing> pair_up(const std::vector<outcome> &predicted, const std::vector<outcome> &seen)
{
    std::map<place, pairing> pairs;
    for (const outcome &one : predicted)
        pairs[{one.device, one.kind, one.subject}].expected.push_back(&one);
    for (const outcome &one : seen)
        if (one.kind != outcome_using)
            pairs[{one.device, one.kind, one.subject}].found.push_back(&one);
    return pairs;
}

bool is_history(outcome_kind kind)
{
    return kind == outcome_history || kind == outcome_late_history;
}
bool is_alert(outcome_kind kind)
{
    return kind >= outcome_addiction && kind <= outcome_answer;
}

// One table of the kinds that `wanted` picks; returns how many rows differ.
int print_table(const scenario &household, const std::map<place, pairing> &pairs, bool (*wanted)(outcome_kind))
{
    int differences = 0;
    printf("  %-16s %-18s %-9s %-9s %-37s %s\n", "device", "what", "from", "until", "the rules say", "the daemon says");
    for (const auto &[where, pair] : pairs) {
        if (!wanted(std::get<1>(where)))
            continue;
        for (size_t i = 0; i < std::max(pair.expected.size(), pair.found.size()); i++) {
            const outcome *expected = i < pair.expected.size() ? pair.expected[i] : nullptr;
            const outcome *found = i < pair.found.size() ? pair.found[i] : nullptr;
            const outcome &shown = expected ? *expected : *found;
            bool equal = expected && found && expected->amount == found->amount;
            differences += !equal;
            printf("  %-16s %-18s %-9s %-9s %-37s %-37s %s\n", device_name(household, shown.device),
                   subject_text(household, shown).c_str(), shown.from ? clock_text(shown.from).c_str() : "",
                   clock_text(shown.at).c_str(), expected ? outcome_text(*expected).c_str() : "nothing",
                   found ? outcome_text(*found).c_str() : "nothing", equal ? "=" : "DIFFERENT");
        }
    }
    return differences;
}

int count_presence_differences(const std::map<place, pairing> &pairs)
{
    int differences = 0;
    for (const auto &[where, pair] : pairs) {
        if (std::get<1>(where) != outcome_online && std::get<1>(where) != outcome_offline)
            continue;
        auto equal = [](const outcome *a, const outcome *b) { return a->amount == b->amount; };
        differences += !std::equal(pair.expected.begin(), pair.expected.end(), pair.found.begin(), pair.found.end(), equal);
    }
    return differences;
}

} // namespace

void tell_outcome(const scenario &household, const outcome &one)
{
    tell(household, one.at, one.device, subject_text(household, one), outcome_text(one));
}

void tell_event(const scenario &household, const household_event &event)
{
    switch (event.kind) {
    case event_online:
        return tell(household, event.at, event.device, "", "> comes home");
    case event_offline:
        return tell(household, event.at, event.device, "", "> leaves");
    case event_role:
        return tell(household, event.at, event.device, "", "> gets role " + std::to_string(event.number));
    case event_ask:
        return tell(household, event.at, event.device, "", "> somebody asks what it is doing");
    case event_limits:
        for (const use_limit &limit : event.limits)
            if (limit.on)
                tell(household, event.at, event.device, name_in(class_names, limit.class_type),
                     "> the household sets a limit of " + minutes_text(limit.minutes));
        return;
    case event_payment:
        return;
    }
}

void tell_new_app(const scenario &household, const step &action)
{
    printf("%s  %-16s %-18s > joins the catalogue\n", clock_text(action.at).c_str(), "", app_name(household, action.app));
}

bool compare(const scenario &household, const std::vector<outcome> &predicted, const std::vector<outcome> &seen)
{
    std::map<place, pairing> pairs = pair_up(predicted, seen);
    printf("\nWho used what for how long (started minutes less the last; one history push a session of two and more)\n");
    int differences = print_table(household, pairs, is_history);
    printf("\nAlerts, payments and answers\n");
    differences += print_table(household, pairs, is_alert);
    int presence = count_presence_differences(pairs);
    std::map<int, int> codes;
    for (const outcome &one : seen)
        codes[push_codes[one.kind]]++;
    codes.erase(0);
    printf("\nPushes seen:");
    for (const auto &[code, times] : codes)
        printf("  %d: %d", code, times);
    printf("\nOnline and offline pushes: %s\n", presence == 0 ? "as the rules say" : "DIFFERENT from what the rules say");
    return differences == 0 && presence == 0;
}
