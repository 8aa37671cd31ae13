// What travels on the request socket: SOCK_SEQPACKET, one packet with the request, one with the answer, then the end.
//
// A request is request_head, then `device_length` bytes of device text, then `text_length` bytes of text; requests about
// payment switches carry the switches record as their text. An answer is answer_head, then `text_length` bytes. Integers and
// records are in host order: both ends are on one machine. Texts carry no terminator and no NUL.
#ifndef PLATFORM_LINUX_CLIENT_REQUEST_PROTOCOL_H
#define PLATFORM_LINUX_CLIENT_REQUEST_PROTOCOL_H

#include "common/sec_plg_common.h"
#include "igd/igd_types.h"

#include <stddef.h>

constexpr u32 request_magic = 0x41505251;
constexpr u32 answer_magic = 0x41504153;

// Requests that the platform library answers itself, text in and text out.
enum library_request_id : u32 {
    request_list_devices = 1000, // nothing, or {"after":...} in; {"devices":[...]} out
    request_change_device,       // {"mac":...,"name":...,"role":...} in
};

struct request_head {
    u32 magic;
    u32 id;
    u32 action;   // switches only
    u32 capacity; // of the result text, at most request_text_limit
    u32 device_length;
    u32 text_length;
};
static_assert(sizeof(request_head) == 24, "request on the socket");

struct answer_head {
    u32 magic;
    int32_t result;
    u32 full_length; // of the result text, before it was cut to the capacity
    u32 text_length; // bytes that follow
};
static_assert(sizeof(answer_head) == 16, "answer on the socket");

// Both texts of a request together, and a result text. One packet must fit the smallest send buffer in use.
constexpr size_t request_text_limit = 64 * 1024;
constexpr size_t request_packet_limit = sizeof(request_head) + request_text_limit;
constexpr size_t answer_packet_limit = sizeof(answer_head) + request_text_limit;

// What a request brings and takes.
enum request_shape {
    request_unknown,
    request_report,   // device text in, result text out
    request_store,    // device text and text in
    request_switches, // switches in and out
    request_library,  // text in, result text out; answered by the library itself
};

// From this id on.
constexpr u32 first_library_request = 1000;

constexpr request_shape shape_of_request(u32 id)
{
    constexpr struct {
        u32 id;
        request_shape shape;
    } shapes[] = {
        {APPIDENT_GET_CUR_DEVICE_APP, request_report},          {APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM, request_report},
        {APPIDENT_GET_CUR_DEVICES_APP, request_report},         {APPIDENT_GET_CUR_DEVICES_APP_FOR_ROM, request_report},
        {APPIDENT_SET_DEVICE_APP_LIST_USE_TIME, request_store}, {APPIDENT_GET_DEVICE_APP_LIST_USE_TIME, request_report},
        {APPIDENT_SET_PAYMENT_CONFIG, request_switches},        {APPIDENT_GET_PAYMENT_CONFIG, request_switches},
    };
    for (const auto &known : shapes)
        if (known.id == id)
            return known.shape;
    return id >= first_library_request ? request_library : request_unknown;
}

#endif
