// A gateway whose remembered clients are looked at in every place where they live: working copy, segment,
// files, and what a fresh load makes of the files.
#pragma once

#include <cstdio>
#include <string>
#include <sys/resource.h>
#include <vector>

#include <hbs_msg.h>

#include "base/paths.h"
#include "events/comment.h"
#include "events/device_lists.h"
#include "events/route_mode.h"
#include "events/static_lease.h"
#include "events/trust.h"
#include "files/client_file.h"
#include "files/rule_files.h"
#include "files/trusted_devices.h"
#include "store/client_fields.h"
#include "support/events.h"

constexpr const char *STATIC_LEASES = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
constexpr const char *HOST_RECORDS = "/nvram/8/dhcpd/udhcpd.192.168.0.1.host";

constexpr const char *LAPTOP = "02:aa:00:00:00:11";
constexpr const char *TABLET = "02:aa:00:00:00:12";

inline std::string hex(const std::string &text) {
    std::string out;
    for (const char c : text) {
        char digits[3];
        (void)snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        out += digits;
    }
    return out;
}

// A client as its line in the persistence file shows it.
struct Persisted {
    std::string mac;
    int nwidx = 0;
    std::string host = "~nohost~";
    std::string comment = "~nocomment~";
    unsigned trust = 0;
    std::string keyword_list = "~nokeyword_list~";
    std::string description = "~nodescription~";
    int mac_filter = 0;
    std::string domain_list = "~nodomain_list~";

    std::string line() const {
        char word[16];
        (void)snprintf(word, sizeof word, "%08x", trust);
        return mac + " " + std::to_string(nwidx) + " " + hex(host) + " " + hex(comment) + " " + word + " " +
               hex(keyword_list) + " " + hex(description) + " " + std::to_string(mac_filter) + " " +
               hex(domain_list);
    }
};

class ManagementTest : public EventTest {
  protected:
    void SetUp() override {
        EventTest::SetUp();
        if (HasFatalFailure())
            return;
        write_file(HBS_CLIENT_FILE, " version 1\n");
        (void)getrusage(RUSAGE_CHILDREN, &children_before_);
    }

    static hbs_client *client_of(const std::string &mac) { return hbs_find_by_mac(mac_of(mac).data()); }

    // Everything that lives in memory is dropped and made anew from the files.
    static void reload() {
        EXPECT_EQ(0, hbs_set_route_mode(0));
        EXPECT_EQ(0, hbs_set_route_mode(1));
    }

    static std::string client_file() { return read_file(HBS_CLIENT_FILE); }

    // The lines of a MAC in the persistence file, without newlines.
    static std::vector<std::string> lines_of(const std::string &mac) {
        std::vector<std::string> found;
        for (const std::string &line : read_lines(HBS_CLIENT_FILE))
            if (line.compare(0, mac.size(), mac) == 0)
                found.push_back(line);
        return found;
    }

    static std::vector<hbs_rule_entry> rules() {
        std::vector<hbs_rule_entry> entries(HBS_MAX_RULE_ENTRIES);
        size_t count = 0;
        EXPECT_EQ(HOSTBASE_OK, hostbase_get_rule_index(entries.data(), entries.size(), &count));
        entries.resize(count);
        return entries;
    }

    // Trust by MAC, site, with a comment.
    static int trust(const std::string &mac, const std::string &comment = "") {
        return hbs_api_trust_by_mac(1, true, mac_of(mac).data(), comment.c_str());
    }
    static int distrust(const std::string &mac) {
        return hbs_api_trust_by_mac(1, false, mac_of(mac).data(), "");
    }

    // The instance in a device's record, -1 without one.
    static int64_t instance_of(const std::string &mac) {
        hbs_trusted_device device{};
        const Mac bytes = mac_of(mac);
        std::copy(bytes.begin(), bytes.end(), device.mac);
        return hbs_nv_get_trusted_tr69_instance(&device) == 0 ? int64_t{device.instance} : -1;
    }

    static hbs_filter_request filter(uint8_t type, const std::string &mac,
                                     std::array<uint32_t, 6> values = {}) {
        hbs_filter_request request{};
        request.type = type;
        const Mac bytes = mac_of(mac);
        std::copy(bytes.begin(), bytes.end(), request.mac);
        std::copy(values.begin(), values.end(), request.value);
        request.comment = request.description = request.keyword_list = request.domain_list = "";
        return request;
    }

    // No process was started and waited for since the test began.
    bool no_command_ran() const {
        rusage now;
        (void)getrusage(RUSAGE_CHILDREN, &now);
        return now.ru_minflt == children_before_.ru_minflt && now.ru_majflt == children_before_.ru_majflt;
    }

  private:
    rusage children_before_{};
};
