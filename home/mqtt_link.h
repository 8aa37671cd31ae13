// The connection to the broker, on the program's loop: it comes back by itself, later and later, and tells what happens.
//
// Finding the broker's address and connecting may take minutes and cannot be done without waiting by libmosquitto on a loop of
// one's own, so a thread does that and nothing else; while it runs, nobody else touches the client.
#ifndef HOME_MQTT_LINK_H
#define HOME_MQTT_LINK_H

#include "home/loop.h"
#include "home/notice_settings.h"

#include <string>

struct mqtt_calls {
    void (*up)(void *context);                        // the broker has taken us in
    void (*acknowledged)(void *context, int message); // it has a message of ours
    void (*heard)(void *context, const std::string &topic, const std::string &text, bool retained);
    void *context;
};

struct mqtt_link;

// `client_id` names the session that the broker keeps for us; `will_topic` gets "offline" when we are gone. Null when the
// library refuses, which has been said on standard error.
mqtt_link *open_mqtt_link(const mqtt_settings &settings, const std::string &client_id, const std::string &will_topic,
                          const mqtt_calls &calls);
// Leaves without a farewell, so that the broker tells our will.
void close_mqtt_link(mqtt_link *link);
loop_part mqtt_link_part(mqtt_link *link);

bool is_up(const mqtt_link *link);
// Messages that the broker has not acknowledged.
int in_flight(const mqtt_link *link);
// With QoS 1; returns the message's number, 0 when it could not be sent. A connection that breaks sends it again.
int publish(mqtt_link *link, const std::string &topic, const std::string &text, bool retained);
void subscribe(mqtt_link *link, const std::string &topic);

#endif
