// The rules of limits and payments, reckoned without the daemon.
#ifndef SIMULATOR_ALERT_MODEL_H
#define SIMULATOR_ALERT_MODEL_H

#include "simulator/session_model.h"

// The payment service whose accounting flows are counted.
constexpr u32 counted_payment_service = 300;
inline bool is_payment_flow(u32 app)
{
    return app >= counted_payment_service && app <= counted_payment_service + 3;
}

// Rules seen of one payment service on one device.
struct payment_watch {
    std::vector<std::pair<u32, moment>> rules;
    moment last_alert = 0;
};
// Services 300 to 302, in this order.
struct payment_model {
    payment_watch watches[3];
};

// Two flows within a minute let one payment of the first service through.
struct payment_gate {
    u32 flows = 0;
    moment since = 0;
    bool open = false;
};

void count_flow(payment_gate &gate, moment now);
void note_payment_rule(payment_model &payments, u32 service, u32 rule, moment now);

// What setting limits does to the stored ones, and what loading those does to the device.
void merge_limits(std::vector<use_limit> &stored, const std::vector<use_limit> &set);
void apply_limits(device_model &device, const std::vector<use_limit> &stored);
// A newly catalogued app joins the limit of its class, in the device and in the stored settings.
void count_new_app(device_model &device, std::vector<use_limit> &stored, const app_entry &app);

// Everything that one tick alerts of.
void raise_alerts(device_model &device, payment_model &payments, payment_gate &gate, moment now, std::vector<outcome> &out);

#endif
