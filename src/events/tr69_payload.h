// The event payload that the TR-069 agent reads: byte offsets are shared with it. The 32-bit numbers are
// in native order and not aligned within the payload, which is why the structs are packed.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_db.h>
#include <tr69.h>

// Texts are NUL-terminated; what an event does not carry is zero.
struct hbs_tr69_body {
    char mac[20];     // "%02X:..."
    uint32_t number;  // nwidx, or the 16-bit value of a static-lease command
    uint32_t adapter; // HBS_ADAPTER_*
    char ipv4[16];
    char ipv6[46];
    char ll[46];
    char host[HBS_HOST_SIZE];
    uint8_t described; // 1 = the client has a lease start date, or the event describes it fully
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
    uint8_t zero[2];
} __attribute__((packed));

struct hbs_tr69_payload {
    uint8_t zero[8];
    uint8_t one; // always 1
    uint8_t code;
    hbs_tr69_body body;
    uint8_t tail[174];
} __attribute__((packed));

static_assert(offsetof(hbs_tr69_body, number) == 20);
static_assert(offsetof(hbs_tr69_body, adapter) == 24);
static_assert(offsetof(hbs_tr69_body, ipv4) == 28);
static_assert(offsetof(hbs_tr69_body, ipv6) == 44);
static_assert(offsetof(hbs_tr69_body, ll) == 90);
static_assert(offsetof(hbs_tr69_body, host) == 136);
static_assert(offsetof(hbs_tr69_body, described) == 200);
static_assert(offsetof(hbs_tr69_body, oui) == 201);
static_assert(offsetof(hbs_tr69_body, serial_number) == 208);
static_assert(offsetof(hbs_tr69_body, product_class) == 273);
static_assert(offsetof(hbs_tr69_body, zero) == 338);
static_assert(sizeof(hbs_tr69_body) == 340);
static_assert(offsetof(hbs_tr69_payload, one) == 8);
static_assert(offsetof(hbs_tr69_payload, code) == 9);
static_assert(offsetof(hbs_tr69_payload, body) == 10);
static_assert(offsetof(hbs_tr69_payload, tail) == 350);
static_assert(sizeof(hbs_tr69_payload) == TR69_EVENT_SIZE);
