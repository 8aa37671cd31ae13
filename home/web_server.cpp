#include "home/web_server.h"

#include "home/lan_address.h"
#include "home/web_checks.h"
#include "home/web_connection.h"
#include "platform/linux/client/json_text.h"

#include <algorithm>
#include <sys/stat.h>
#include <time.h>

namespace {

constexpr int64_t look_every_ms = 10000;
constexpr unsigned int connections_most = 32, connections_of_address_most = 20, silent_most_seconds = 15;
constexpr size_t memory_of_connection = 16 * 1024, settings_text_most = 256, certificate_most = 256 * 1024;

std::string setting_text(const cJSON *section, const char *key, const char *otherwise = "")
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(section, key));
    return text && std::string(text).size() <= settings_text_most ? text : otherwise;
}

web_settings read_web_settings(const home_settings &settings)
{
    const cJSON *web = cJSON_GetObjectItemCaseSensitive(settings.tree.get(), "web"), *host = nullptr;
    web_settings read;
    cJSON_ArrayForEach(host, cJSON_GetObjectItemCaseSensitive(web, "hosts")) {
        if (const char *text = cJSON_GetStringValue(host))
            read.hosts.push_back(text);
    }
    read.certificate = setting_text(web, "certificate");
    read.key = setting_text(web, "key");
    read.files = setting_text(web, "files", APPIDENT_DATADIR "/page");
    read.tool = setting_text(web, "appidentctl", APPIDENT_BINDIR "/appidentctl");
    read.metrics_token = setting_text(cJSON_GetObjectItemCaseSensitive(settings.tree.get(), "metrics"), "token");
    return read;
}

int64_t file_time(const std::string &path)
{
    struct stat about;
    return !path.empty() && stat(path.c_str(), &about) == 0 ? static_cast<int64_t>(about.st_mtime) : 0;
}

// The interface is remembered, as the daemon that tells it starts later than we do.
std::string listening_address(web_server *server)
{
    constexpr const char *interface_key = "lan_interface";
    household *home = server->home;
    if (!home->settings->listen.empty())
        return home->settings->listen;
    std::string interface = home->truth.lan_interface;
    if (interface.empty())
        interface = meta_text(&home->all.db, interface_key);
    else if (interface != meta_text(&home->all.db, interface_key))
        set_meta(&home->all.db, interface_key, interface);
    std::string address = interface.empty() ? "" : address_of_interface(interface);
    if (address.empty())
        address = server->daemon ? server->place.address : "127.0.0.1";
    return address;
}

void say(web_server *server, const std::string &what)
{
    if (server->said != what)
        fprintf(stderr, "appident-home: %s\n", what.c_str());
    server->said = what;
}

void stop_listening(web_server *server)
{
    if (!server->daemon)
        return;
    end_streams(server);
    MHD_run(server->daemon);
    MHD_stop_daemon(server->daemon);
    server->daemon = nullptr;
}

// Without the certificate that the settings name there is no page at all, rather than one that sends passwords unencrypted.
bool read_certificate(web_server *server)
{
    text_file certificate = read_text_file(server->settings.certificate.c_str(), certificate_most);
    text_file key = read_text_file(server->settings.key.c_str(), certificate_most);
    server->certificate = certificate.text ? certificate.text.get() : "";
    server->key = key.text ? key.text.get() : "";
    return certificate.text && key.text;
}

void start_listening(web_server *server, const web_place &place)
{
    sockaddr_storage address;
    bool secure = !server->settings.certificate.empty() || !server->settings.key.empty();
    if (!read_address(place.address, place.port, &address))
        return say(server, "\"listen\": " + place.address + " is no address; there is no page");
    if (secure && !read_certificate(server))
        return say(server, "the certificate or its key cannot be read; there is no page");
    unsigned int flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME;
    if (secure)
        flags |= MHD_USE_TLS;
    if (address.ss_family == AF_INET6)
        flags |= MHD_USE_IPv6;
    const MHD_OptionItem of_tls[] = {{MHD_OPTION_HTTPS_MEM_CERT, 0, server->certificate.data()},
                                     {MHD_OPTION_HTTPS_MEM_KEY, 0, server->key.data()},
                                     {MHD_OPTION_END, 0, nullptr}};
    const MHD_OptionItem none[] = {{MHD_OPTION_END, 0, nullptr}};
    server->place = place;
    server->names = own_names(place, server->settings);
    server->daemon = MHD_start_daemon(
        flags, static_cast<uint16_t>(place.port), nullptr, nullptr, take_request, server, MHD_OPTION_SOCK_ADDR, &address,
        MHD_OPTION_NOTIFY_COMPLETED, forget_request, server, MHD_OPTION_NOTIFY_CONNECTION, note_connection, server,
        MHD_OPTION_CONNECTION_LIMIT, connections_most, MHD_OPTION_PER_IP_CONNECTION_LIMIT, connections_of_address_most,
        MHD_OPTION_CONNECTION_TIMEOUT, silent_most_seconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT, memory_of_connection,
        MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_ARRAY, secure ? of_tls : none, MHD_OPTION_END);
    std::string where = std::string(secure ? "https://" : "http://") +
                        (address.ss_family == AF_INET6 ? "[" + place.address + "]" : place.address) + ":" +
                        std::to_string(place.port) + "/";
    say(server, server->daemon ? "the page is at " + where
                               : "cannot serve the page at " + where + ": the address or port cannot be had" +
                                     (secure ? ", or the certificate makes no sense" : ""));
}

// Listens where it should, and again elsewhere when that has changed.
void look_after_place(web_server *server)
{
    const home_settings &settings = *server->home->settings;
    web_place wanted = {listening_address(server), settings.port, file_time(server->settings.certificate),
                        file_time(server->settings.key)};
    if (server->daemon && wanted == server->place) {
        // Listening everywhere, the box may have got another address.
        server->names = own_names(wanted, server->settings);
        return;
    }
    stop_listening(server);
    start_listening(server, wanted);
}

size_t prepare_web(void *state, pollfd *slots, size_t, int64_t now_ms, int64_t *wake_ms)
{
    web_server *server = static_cast<web_server *>(state);
    *wake_ms = server->next_look_ms;
    if (!server->daemon)
        return 0;
    *wake_ms = std::min(*wake_ms, keep_streams(server, now_ms));
    MHD_UNSIGNED_LONG_LONG wait_ms = 0;
    if (MHD_get_timeout(server->daemon, &wait_ms) == MHD_YES)
        *wake_ms = std::min(*wake_ms, now_ms + static_cast<int64_t>(wait_ms));
    const MHD_DaemonInfo *info = MHD_get_daemon_info(server->daemon, MHD_DAEMON_INFO_EPOLL_FD);
    slots[0] = {info->epoll_fd, POLLIN, 0};
    return 1;
}

void serve_web(void *state, const pollfd *, size_t, int64_t now_ms)
{
    web_server *server = static_cast<web_server *>(state);
    if (now_ms >= server->next_look_ms) {
        server->next_look_ms = now_ms + look_every_ms;
        look_after_place(server);
        end_stalled_connections(server, now_ms);
    }
    if (server->daemon)
        MHD_run(server->daemon);
}

} // namespace

web_server *open_web_server(household *home)
{
    web_server *server = new web_server;
    server->home = home;
    server->settings = read_web_settings(*home->settings);
    constexpr u32 kinds =
        fact_bit(fact_session) | fact_bit(fact_alert) | fact_bit(fact_device) | fact_bit(fact_gap) | fact_bit(fact_now);
    home->all.listeners.push_back({kinds, tell_streams, server});
    return server;
}

void close_web_server(web_server *server)
{
    if (!server)
        return;
    stop_listening(server);
    auto &listeners = server->home->all.listeners;
    listeners.erase(
        std::remove_if(listeners.begin(), listeners.end(), [&](const fact_listener &one) { return one.context == server; }),
        listeners.end());
    delete server;
}

loop_part web_part(web_server *server)
{
    return {prepare_web, serve_web, server};
}
