#include "home/mqtt_pushes.h"

#include "home/serve.h"

#include <algorithm>
#include <stdio.h>

namespace {

// One piece of the spool, some hundred pushes, is read when no more than this waits: the devices' states come between.
constexpr size_t unacknowledged_most = 16;
constexpr int64_t look_period_ms = 2000;
constexpr const char *place_key = "mqtt.place";

void pass_on(void *context, const char *text, size_t length)
{
    mqtt_pushes *pushes = static_cast<mqtt_pushes *>(context);
    int message = publish(pushes->link, pushes->topic, std::string(text, length), false);
    // One that the library refuses, as it is no UTF-8, say, would be refused for ever.
    pushes->sent.push_back({message, message == 0, pushes->read});
}

// The history counts these.
void ignore(void *) {}

void note_break_here(void *context)
{
    mqtt_pushes *pushes = static_cast<mqtt_pushes *>(context);
    ++pushes->breaks;
    fputs("appident-home: mqtt: the broker was away for so long that pushes are gone from the spool\n", stderr);
}

constexpr spool_calls to_broker = {pass_on, ignore, ignore, note_break_here};

void keep_place(household *home, const spool_place &place)
{
    char text[100];
    snprintf(text, sizeof(text), "%lld %lld %lld %lld", static_cast<long long>(place.inode),
             static_cast<long long>(place.offset), static_cast<long long>(place.mark),
             static_cast<long long>(place.mark_length));
    set_meta(&home->all.db, place_key, text);
}

// Over what is acknowledged without a gap, from the oldest on.
void move_place(mqtt_pushes *pushes)
{
    bool moved = false;
    spool_place place;
    for (; !pushes->sent.empty() && pushes->sent.front().acknowledged; pushes->sent.pop_front()) {
        place = pushes->sent.front().after;
        moved = true;
        ++pushes->passed_on;
    }
    if (moved)
        keep_place(pushes->home, place);
}

} // namespace

void begin_pushes(mqtt_pushes *pushes, household *home, mqtt_link *link, const std::string &topic)
{
    pushes->home = home;
    pushes->link = link;
    pushes->topic = topic;
    pushes->read = home->all.place.spool;
    long long inode, offset, mark, length;
    std::string kept = meta_text(&home->all.db, place_key);
    if (sscanf(kept.c_str(), "%lld %lld %lld %lld", &inode, &offset, &mark, &length) == 4)
        pushes->read = {inode, offset, mark, length};
    else
        keep_place(home, pushes->read);
    pushes->reader.directory = home->settings->runtime_dir;
    pushes->reader.place = &pushes->read;
    pushes->reader.calls = &to_broker;
    pushes->reader.context = pushes;
}

void end_pushes(mqtt_pushes *pushes)
{
    close_spool_reader(&pushes->reader);
}

bool can_send(const mqtt_pushes &pushes)
{
    return pushes.sent.size() < unacknowledged_most;
}

void send_pushes(mqtt_pushes *pushes, int64_t now_ms)
{
    move_place(pushes);
    if (!is_up(pushes->link) || now_ms < pushes->next_look_ms || !can_send(*pushes))
        return;
    bool more = read_spool_piece(&pushes->reader);
    pushes->next_look_ms = more ? now_ms : now_ms + look_period_ms;
}

bool push_acknowledged(mqtt_pushes *pushes, int message)
{
    auto found = std::find_if(pushes->sent.begin(), pushes->sent.end(),
                              [&](const sent_push &one) { return one.message == message && !one.acknowledged; });
    if (found == pushes->sent.end())
        return false;
    found->acknowledged = true;
    return true;
}

void forget_pushes_place(household *home)
{
    if (!meta_text(&home->all.db, place_key).empty())
        change(&home->all.db, "DELETE FROM meta WHERE key=?", place_key);
}
