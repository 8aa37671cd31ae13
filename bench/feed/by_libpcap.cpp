// The feed's classifier behind libpcap, which copies every packet of an interface: one way to look that the feed does not go.
//
// usage: feed_by_libpcap INTERFACE
#include "feed/app_files.h"
#include "feed/classifier.h"
#include "feed/link_layer.h"
#include "feed/wall_clock.h"

#include <memory>
#include <pcap/pcap.h>
#include <stdio.h>

namespace {

constexpr int bytes_copied = 4096, buffer_bytes = 4 * 1024 * 1024, wait_ms = 100; // as the feed's own ring has them

void take(u_char *classify, const pcap_pkthdr *header, const u_char *bytes)
{
    link_frame frame;
    if (!find_ip(DLT_EN10MB, {bytes, header->caplen}, &frame))
        return;
    packet one{};
    one.time_us = believed_us(static_cast<uint64_t>(header->ts.tv_sec), static_cast<uint64_t>(header->ts.tv_usec), wall_us());
    fill_packet(frame, header->len, &one);
    reinterpret_cast<classifier *>(classify)->take(one);
}

} // namespace

int main(int argc, char **argv)
{
    app_files files("", "none");
    app_catalogue apps;
    classifier_options options;
    char trouble[PCAP_ERRBUF_SIZE] = "";
    std::unique_ptr<pcap_t, decltype(&pcap_close)> capture(argc == 2 ? pcap_create(argv[1], trouble) : nullptr, pcap_close);
    if (!capture || !files.read(&apps) || !read_lan("private", &options.lan))
        return 2;
    pcap_set_snaplen(capture.get(), bytes_copied);
    pcap_set_buffer_size(capture.get(), buffer_bytes);
    pcap_set_timeout(capture.get(), wait_ms);
    pcap_set_promisc(capture.get(), 1);
    if (pcap_activate(capture.get()) < 0) {
        pcap_perror(capture.get(), argv[1]);
        return 1;
    }
    classifier classify(options, std::move(apps), [](const hit &) {});
    puts("watching");
    fflush(stdout);
    while (pcap_dispatch(capture.get(), -1, take, reinterpret_cast<u_char *>(&classify)) >= 0)
        classify.advance(wall_us());
    return 1;
}
