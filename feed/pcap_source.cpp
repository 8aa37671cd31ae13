// A capture file, pcap or pcapng, once or several times.
#include "feed/link_layer.h"
#include "feed/source.h"

#include <memory>
#include <pcap/pcap.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr uint64_t second_us = 1000000;
constexpr uint64_t longest_gap_us = 60 * second_us;
constexpr uint64_t gap_between_loops_us = second_us;

struct pcap_release {
    void operator()(pcap_t *capture) const { pcap_close(capture); }
};
using pcap_ptr = std::unique_ptr<pcap_t, pcap_release>;

// Time as it is told: the capture's own, but long gaps shortened and loops set one behind the other.
struct capture_clock {
    bool true_time;
    bool has_first = false;
    uint64_t last_raw = 0; // of the capture
    uint64_t now = 0;      // as told

    uint64_t at(uint64_t raw)
    {
        if (!has_first) {
            now = now == 0 ? raw : now + gap_between_loops_us;
            has_first = true;
        } else if (raw > last_raw) {
            uint64_t gap = raw - last_raw;
            now += true_time ? gap : std::min(gap, longest_gap_us);
        } else if (last_raw - raw <= longest_gap_us) {
            return now; // out of order by a little; the told time does not go back
        }
        last_raw = raw;
        return now;
    }
};

uint64_t monotonic_us()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * second_us + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

// Waits until the capture's time is due.
struct pace {
    double speed; // 0: never waits
    uint64_t began_us = 0, first_us = 0;
    uint64_t refreshed_us = 0;

    void wait_for(uint64_t time_us, const source_run &run)
    {
        uint64_t now = monotonic_us();
        if (began_us == 0) {
            began_us = refreshed_us = now;
            first_us = time_us;
        }
        auto due = began_us + static_cast<uint64_t>(static_cast<double>(time_us - first_us) / speed);
        while (now < due && !run.stop) {
            uint64_t left = std::min(due - now, second_us);
            timespec nap{static_cast<time_t>(left / second_us), static_cast<long>(left % second_us * 1000)};
            nanosleep(&nap, nullptr);
            now = monotonic_us();
            run.classify.advance(first_us + static_cast<uint64_t>(static_cast<double>(std::min(now, due) - began_us) * speed));
            if (now - refreshed_us >= interval_us) {
                run.refresh();
                refreshed_us = now;
            }
        }
    }
};

int play_once(const std::string &path, const source_run &run, capture_clock *clock, pace *speed)
{
    char trouble[PCAP_ERRBUF_SIZE] = "";
    pcap_ptr capture(pcap_open_offline(path.c_str(), trouble));
    if (!capture) {
        fprintf(stderr, "appident-feed: %s\n", strstr(trouble, path.c_str()) ? trouble : (path + ": " + trouble).c_str());
        return feed_no_input;
    }
    int type = pcap_datalink(capture.get());
    if (!is_known_link_type(type)) {
        const char *name = pcap_datalink_val_to_name(type);
        fprintf(stderr, "appident-feed: %s: link type %s is not known\n", path.c_str(), name ? name : "?");
        return feed_no_input;
    }
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    int outcome = 0;
    while (!run.stop && (outcome = pcap_next_ex(capture.get(), &header, &bytes)) == 1) {
        uint64_t raw = static_cast<uint64_t>(header->ts.tv_sec) * second_us + static_cast<uint64_t>(header->ts.tv_usec);
        uint64_t now = clock->at(raw);
        if (speed->speed > 0)
            speed->wait_for(now, run);
        link_frame frame;
        if (!find_ip(type, {bytes, header->caplen}, &frame))
            continue;
        packet one{};
        one.time_us = now;
        fill_packet(frame, header->len, &one);
        run.classify.take(one);
    }
    // A capture that was cut off is good up to there.
    if (outcome == PCAP_ERROR)
        fprintf(stderr, "appident-feed: %s: %s; what stands before was read\n", path.c_str(), pcap_geterr(capture.get()));
    return feed_done;
}

} // namespace

int run_pcap_source(const std::string &path, const source_run &run)
{
    capture_clock clock{run.options.true_time};
    pace speed{run.options.speed};
    for (unsigned long i = 0; i < run.options.loops && !run.stop; i++) {
        clock.has_first = false;
        if (int failed = play_once(path, run, &clock, &speed); failed != feed_done)
            return failed;
        run.classify.end_flows();
    }
    run.classify.finish();
    return feed_done;
}
