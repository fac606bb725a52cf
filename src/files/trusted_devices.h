// The TR-069 instance number of each trusted device: despite its name a binary file of records, all
// integers 32-bit in native order.
#pragma once

#include <cstdint>

#include <hbs_db.h>

struct hbs_trusted_device {
    uint8_t mac[HBS_MAC_SIZE];
    uint8_t align[2];
    uint32_t instance; // bytes 8-11
};

// Adds or replaces the device's record. 0, or -1.
int hbs_nv_set_trusted_tr69_instance(const hbs_trusted_device *device);

// Drops the device's record. 0, or -1 when the file is missing or cannot be written.
int hbs_nv_remove_trusted_tr69_instance(const uint8_t mac[HBS_MAC_SIZE]);

// Fills the instance from the record of device->mac, 0 where it has none. 0, or -1 when the file or the
// record is missing.
int hbs_nv_get_trusted_tr69_instance(hbs_trusted_device *device);
