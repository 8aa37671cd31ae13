// Passes each push on to the broker. The spool is the queue: a second place in it, kept in the database, moves on when the
// broker has acknowledged, so that neither a restart nor a broker that is away loses anything that the spool still holds.
#ifndef HOME_MQTT_PUSHES_H
#define HOME_MQTT_PUSHES_H

#include "home/mqtt_link.h"
#include "home/spool_reader.h"

#include <deque>

struct household;

struct sent_push {
    int message;
    bool acknowledged;
    spool_place after; // the place behind it
};

struct mqtt_pushes {
    household *home = nullptr;
    mqtt_link *link = nullptr;
    std::string topic;
    spool_reader reader;
    spool_place read;           // up to here lines have been given to the link
    std::deque<sent_push> sent; // not all acknowledged, in the order of the spool
    int64_t next_look_ms = 0;
    int64_t breaks = 0; // times that the spool had gone before the broker took it
    int64_t passed_on = 0;
};

// Begins where it was, or, the first time, where the history is.
void begin_pushes(mqtt_pushes *pushes, household *home, mqtt_link *link, const std::string &topic);
void end_pushes(mqtt_pushes *pushes);
// Whether there is room for more at the broker.
bool can_send(const mqtt_pushes &pushes);
// Sends what is there, as long as not too much waits for the broker.
void send_pushes(mqtt_pushes *pushes, int64_t now_ms);
// False when the message is no push.
bool push_acknowledged(mqtt_pushes *pushes, int message);

// While pushes are not passed on, no place is kept.
void forget_pushes_place(household *home);

#endif
