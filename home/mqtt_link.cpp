#include "home/mqtt_link.h"

#include "common/guards.h"
#include "home/database.h"

#include <mosquitto.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <random>
#include <thread>

namespace {

constexpr int keep_alive_s = 60;
constexpr int64_t upkeep_ms = 5000;
constexpr int64_t first_pause_ms = 1000, longest_pause_ms = 64000;
// A connection that lasted so long was a good one; the next pause is short again.
constexpr int64_t good_after_ms = 10000;
constexpr int packets_at_once = 100;
constexpr size_t longest_message = 1024;

enum link_state { link_down, link_connecting, link_greeting, link_up };

using mosquitto_handle = std::unique_ptr<mosquitto, released_by<mosquitto_destroy>>;

} // namespace

struct mqtt_link {
    mosquitto_handle client;
    mqtt_settings settings;
    mqtt_calls calls;
    link_state state = link_down;
    std::thread connecting;
    int connected = MOSQ_ERR_SUCCESS; // what the thread met; read when it has ended
    fd_guard done{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    bool known_to_client = false; // the library has been told of the broker
    bool said = false;            // that it cannot be reached
    int failures = 0;
    int in_flight = 0;
    int64_t next_ms = 0, upkeep_at_ms = 0, up_since_ms = 0;
};

namespace {

int64_t pause_after(int failures)
{
    static std::minstd_rand random(std::random_device{}());
    int64_t pause = std::min(first_pause_ms << std::min(failures, 10), longest_pause_ms);
    return pause / 2 + static_cast<int64_t>(random()) % pause;
}

void say(mqtt_link *link, const char *why)
{
    if (!link->said)
        fprintf(stderr, "appident-home: mqtt: %s:%d: %s; trying again\n", link->settings.host.c_str(),
                static_cast<int>(link->settings.port), why);
    link->said = true;
}

void go_down(mqtt_link *link, const char *why)
{
    int64_t now = uptime_ms();
    say(link, why);
    if (link->state == link_up && now - link->up_since_ms >= good_after_ms)
        link->failures = 0;
    link->state = link_down;
    link->next_ms = now + pause_after(link->failures++);
}

void on_connect(mosquitto *, void *context, int refused)
{
    mqtt_link *link = static_cast<mqtt_link *>(context);
    if (refused) {
        say(link, mosquitto_connack_string(refused));
        return; // the broker closes
    }
    if (link->said)
        fprintf(stderr, "appident-home: mqtt: %s is there\n", link->settings.host.c_str());
    link->said = false;
    link->state = link_up;
    link->up_since_ms = uptime_ms();
    link->calls.up(link->calls.context);
}

void on_publish(mosquitto *, void *context, int message)
{
    mqtt_link *link = static_cast<mqtt_link *>(context);
    --link->in_flight;
    link->calls.acknowledged(link->calls.context, message);
}

void on_message(mosquitto *, void *context, const mosquitto_message *message)
{
    mqtt_link *link = static_cast<mqtt_link *>(context);
    size_t size = static_cast<size_t>(message->payloadlen);
    if (size <= longest_message)
        link->calls.heard(link->calls.context, message->topic, std::string(static_cast<const char *>(message->payload), size),
                          message->retain);
}

void connect_aside(mqtt_link *link)
{
    const mqtt_settings &to = link->settings;
    link->connected = link->known_to_client
                          ? mosquitto_reconnect(link->client.get())
                          : mosquitto_connect(link->client.get(), to.host.c_str(), static_cast<int>(to.port), keep_alive_s);
    link->known_to_client = true;
    eventfd_write(link->done.get(), 1);
}

size_t prepare(void *state, pollfd *slots, size_t, int64_t now_ms, int64_t *wake_ms)
{
    mqtt_link *link = static_cast<mqtt_link *>(state);
    if (link->state == link_down)
        *wake_ms = link->next_ms;
    if (link->state == link_connecting)
        slots[0] = {link->done.get(), POLLIN, 0};
    if (link->state < link_connecting)
        return 0;
    if (link->state > link_connecting) {
        bool write = mosquitto_want_write(link->client.get());
        slots[0] = {mosquitto_socket(link->client.get()), static_cast<short>(POLLIN | (write ? POLLOUT : 0)), 0};
        // A message may have found the connection broken.
        *wake_ms = slots[0].fd < 0 ? now_ms : link->upkeep_at_ms;
    }
    return 1;
}

void serve_connecting(mqtt_link *link)
{
    eventfd_t count;
    if (eventfd_read(link->done.get(), &count) != 0)
        return;
    link->connecting.join();
    if (link->connected == MOSQ_ERR_SUCCESS)
        link->state = link_greeting;
    else
        go_down(link, link->connected == MOSQ_ERR_ERRNO ? "cannot be reached" : mosquitto_strerror(link->connected));
}

void serve_link(void *state, const pollfd *slots, size_t used, int64_t now_ms)
{
    mqtt_link *link = static_cast<mqtt_link *>(state);
    if (link->state == link_down && now_ms >= link->next_ms) {
        link->state = link_connecting;
        link->connecting = std::thread(connect_aside, link);
        return;
    }
    if (link->state == link_connecting)
        return serve_connecting(link);
    if (link->state == link_down || used == 0)
        return;
    int failed = MOSQ_ERR_SUCCESS;
    if (slots[0].revents & (POLLIN | POLLERR | POLLHUP))
        failed = mosquitto_loop_read(link->client.get(), packets_at_once);
    if (!failed && (slots[0].revents & POLLOUT))
        failed = mosquitto_loop_write(link->client.get(), packets_at_once);
    if (!failed && now_ms >= link->upkeep_at_ms) {
        failed = mosquitto_loop_misc(link->client.get());
        link->upkeep_at_ms = now_ms + upkeep_ms;
    }
    if (failed || mosquitto_socket(link->client.get()) < 0)
        go_down(link, failed ? mosquitto_strerror(failed) : "the connection was closed");
}

bool set_up(mqtt_link *link, const std::string &will_topic)
{
    const mqtt_settings &to = link->settings;
    mosquitto *client = link->client.get();
    constexpr const char *will = "offline";
    int failed = mosquitto_will_set(client, will_topic.c_str(), static_cast<int>(strlen(will)), will, 1, true);
    if (!failed && !to.user.empty())
        failed = mosquitto_username_pw_set(client, to.user.c_str(), to.password.empty() ? nullptr : to.password.c_str());
    if (!failed && to.tls)
        failed = to.ca.empty() ? mosquitto_int_option(client, MOSQ_OPT_TLS_USE_OS_CERTS, 1)
                               : mosquitto_tls_set(client, to.ca.c_str(), nullptr, nullptr, nullptr, nullptr);
    if (failed)
        fprintf(stderr, "appident-home: \"mqtt\" is off: %s\n", mosquitto_strerror(failed));
    mosquitto_connect_callback_set(client, on_connect);
    mosquitto_publish_callback_set(client, on_publish);
    mosquitto_message_callback_set(client, on_message);
    return !failed;
}

} // namespace

mqtt_link *open_mqtt_link(const mqtt_settings &settings, const std::string &client_id, const std::string &will_topic,
                          const mqtt_calls &calls)
{
    mosquitto_lib_init();
    signal(SIGPIPE, SIG_IGN); // TLS writes without the flag that spares one
    mqtt_link *link = new mqtt_link;
    link->settings = settings;
    link->calls = calls;
    link->client.reset(mosquitto_new(client_id.c_str(), false, link));
    if (link->client && set_up(link, will_topic))
        return link;
    delete link;
    return nullptr;
}

void close_mqtt_link(mqtt_link *link)
{
    eventfd_t count;
    if (link->connecting.joinable() && eventfd_read(link->done.get(), &count) != 0) {
        // It may wait for minutes yet; the process ends before.
        link->connecting.detach();
        return;
    }
    if (link->connecting.joinable())
        link->connecting.join();
    delete link;
    mosquitto_lib_cleanup();
}

loop_part mqtt_link_part(mqtt_link *link)
{
    return {prepare, serve_link, link};
}

bool is_up(const mqtt_link *link)
{
    return link->state == link_up;
}

int in_flight(const mqtt_link *link)
{
    return link->in_flight;
}

int publish(mqtt_link *link, const std::string &topic, const std::string &text, bool retained)
{
    int message = 0;
    if (link->state != link_up)
        return 0;
    int failed =
        mosquitto_publish(link->client.get(), &message, topic.c_str(), static_cast<int>(text.size()), text.data(), 1, retained);
    // After any other failure the library keeps the message and sends it when the connection is back.
    for (int refused : {MOSQ_ERR_INVAL, MOSQ_ERR_NOMEM, MOSQ_ERR_PAYLOAD_SIZE, MOSQ_ERR_MALFORMED_UTF8})
        if (failed == refused)
            return 0;
    ++link->in_flight;
    return message;
}

void subscribe(mqtt_link *link, const std::string &topic)
{
    // Nothing is kept for us while we are away: a limit set then would come as a surprise.
    mosquitto_subscribe(link->client.get(), nullptr, topic.c_str(), 0);
}
