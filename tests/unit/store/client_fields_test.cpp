// Field setters: what each stores, what it marks, what it leaves alone.
#include <cstddef>
#include <net/if.h>

#include "store/client_fields.h"
#include "store/index.h"
#include "support/working_clients.h"

namespace client_fields_test {

struct TextCase {
    const char *name;
    void (*set)(hbs_client *, const char *);
    size_t offset;
    size_t size;
};

#define TEXT_CASE(field, setter)                                                                             \
    TextCase {                                                                                               \
#field, setter, offsetof(hbs_client, field), sizeof(hbs_client::field)                               \
    }

const TextCase TEXTS[] = {
    TEXT_CASE(host, hbs_set_host),
    TEXT_CASE(device_name, hbs_set_device_name),
    TEXT_CASE(oui, hbs_set_oui),
    TEXT_CASE(serial_number, hbs_set_serial_number),
    TEXT_CASE(product_class, hbs_set_product_class),
    TEXT_CASE(lease_file, hbs_set_lease_file),
    TEXT_CASE(lease_file6, hbs_set_lease_file6),
};

void PrintTo(const TextCase &row, std::ostream *out) {
    *out << row.name;
}

using FieldsTest = OneClientTest;

class TextField : public FieldsTest, public testing::WithParamInterface<TextCase> {
  protected:
    std::string bytes() const {
        return {reinterpret_cast<const char *>(client_) + GetParam().offset, GetParam().size};
    }
    std::string padded(std::string text) const {
        text.resize(GetParam().size);
        return text;
    }
    void set_text(const char *text) { GetParam().set(client_, text); }
};

INSTANTIATE_TEST_SUITE_P(All, TextField, testing::ValuesIn(TEXTS),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(TextField, IsStoredPaddedAndMarked) {
    set_text("abcdef");
    set_text("xyz");
    EXPECT_EQ(padded("xyz"), bytes());
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_P(TextField, EqualTextDoesNothing) {
    set_text("abc");
    client_->flags = 0;
    clear_log();
    set_text("abc");
    EXPECT_EQ(0U, client_->flags);
    EXPECT_TRUE(log_lines().empty());
}

TEST_P(TextField, EmptyTextOnAnEmptyFieldDoesNothing) {
    set_text("");
    EXPECT_EQ(0U, client_->flags);
}

TEST_P(TextField, CanBeEmptiedAgain) {
    set_text("abc");
    client_->flags = 0;
    set_text("");
    EXPECT_EQ(padded(""), bytes());
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_P(TextField, LongTextEndsInsideTheField) {
    for (size_t length : {GetParam().size - 1, GetParam().size, GetParam().size + 1, size_t{2000}}) {
        hbs_client before = *client_;
        set_text(std::string(length, 'a').c_str());
        EXPECT_EQ(padded(std::string(GetParam().size - 1, 'a')), bytes()) << length;
        // Nothing around the field has moved.
        memcpy(reinterpret_cast<char *>(&before) + GetParam().offset, bytes().data(), GetParam().size);
        before.flags = client_->flags;
        EXPECT_EQ(0, memcmp(&before, client_, sizeof before)) << length;
        set_text("");
    }
}

TEST_P(TextField, AnyBytePassesAsData) {
    set_text("%s$(\"\xff");
    EXPECT_EQ(0U, bytes().find("%s$(\"\xff"));
}

TEST_P(TextField, NullClientOrNullTextDoesNothing) {
    GetParam().set(nullptr, "abc");
    set_text(nullptr);
    EXPECT_EQ(padded(""), bytes());
    EXPECT_EQ(0U, client_->flags);
}

TEST_F(FieldsTest, DeviceName_IsLoggedWithThePositionOfTheClient) {
    hbs_publish(client_);
    clear_log();
    hbs_set_device_name(client_, "box");
    EXPECT_EQ(std::vector<std::string>{"HOSTBASE: ******* set device name for client at " +
                                       position_text(client_->dbpos) + " to box\n"},
              log_lines());
}

TEST_F(FieldsTest, Network_MarksAnAddressChange) {
    hbs_set_nwidx(client_, 3);
    EXPECT_EQ(3, client_->nwidx);
    EXPECT_EQ(HBS_CHANGED_ADDRESS, client_->flags);
    client_->flags = 0;
    hbs_set_nwidx(client_, 3);
    EXPECT_EQ(0U, client_->flags);
    hbs_set_nwidx(nullptr, 3);
}

TEST_F(FieldsTest, WifiIndex_MarksAChange) {
    hbs_set_wifi_index(client_, 2);
    EXPECT_EQ(2, client_->wifi_index);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
    client_->flags = 0;
    hbs_set_wifi_index(client_, 2);
    EXPECT_EQ(0U, client_->flags);
    hbs_set_wifi_index(nullptr, 3);
}

TEST_F(FieldsTest, AdapterOtherThanEthernet_HasNoPort) {
    hbs_set_adapter(client_, HBS_ADAPTER_ETHERNET, 3);
    EXPECT_EQ(3, client_->switch_port);
    client_->flags = 0;
    hbs_set_adapter(client_, HBS_ADAPTER_WIFI, 3);
    EXPECT_EQ(0, client_->switch_port);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
    client_->flags = 0;
    hbs_set_adapter(client_, HBS_ADAPTER_WIFI, 4);
    EXPECT_EQ(0U, client_->flags) << "nothing changed";
    hbs_set_adapter(nullptr, HBS_ADAPTER_ETHERNET, 1);
}

class Interface : public FieldsTest {
  protected:
    void SetUp() override {
        FieldsTest::SetUp();
        loopback_ = if_nametoindex("lo");
        ASSERT_NE(0U, loopback_);
        set("xwifi.2.ifnames", "hot0 lo");
    }
    uint32_t loopback_ = 0;
};

TEST_F(Interface, SameIndexAndNoName_DoesNothing) {
    client_->ifindex = loopback_;
    hbs_set_interface(client_, loopback_, nullptr);
    EXPECT_STREQ("", client_->ifname);
    EXPECT_EQ(0, client_->hotspot);
    EXPECT_EQ(0U, client_->flags);
}

TEST_F(Interface, NewIndexWithoutName_TakesTheKernelsName) {
    hbs_set_interface(client_, loopback_, nullptr);
    EXPECT_EQ(loopback_, client_->ifindex);
    EXPECT_STREQ("lo", client_->ifname);
    EXPECT_EQ(1, client_->hotspot);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(Interface, IndexUnknownToTheKernel_LeavesTheNameAsItWas) {
    hbs_set_interface(client_, loopback_, "hot0");
    client_->flags = 0;
    hbs_set_interface(client_, 0x7FFFFFF0, nullptr);
    EXPECT_EQ(0x7FFFFFF0U, client_->ifindex);
    EXPECT_STREQ("hot0", client_->ifname);
    EXPECT_EQ(1, client_->hotspot);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(Interface, NewNameAtTheSameIndex_IsStoredAndMarked) {
    hbs_set_interface(client_, 7, "l2sd0.2");
    client_->flags = 0;
    hbs_set_interface(client_, 7, "hot0");
    EXPECT_EQ(7U, client_->ifindex);
    EXPECT_STREQ("hot0", client_->ifname);
    EXPECT_EQ(1, client_->hotspot);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(Interface, LeavingAHotspot_ClearsTheByte) {
    hbs_set_interface(client_, 7, "hot0");
    hbs_set_interface(client_, 7, "l2sd0.2");
    EXPECT_EQ(0, client_->hotspot);
}

TEST_F(Interface, EqualNameAndIndex_DoesNothing) {
    hbs_set_interface(client_, 7, "hot0");
    client_->flags = 0;
    client_->hotspot = 0;
    hbs_set_interface(client_, 7, "hot0");
    EXPECT_EQ(0U, client_->flags);
    EXPECT_EQ(0, client_->hotspot) << "not even looked up";
}

TEST_F(Interface, EqualNameAtAnotherIndex_IsAChange) {
    hbs_set_interface(client_, 7, "hot0");
    client_->flags = 0;
    hbs_set_interface(client_, 8, "hot0");
    EXPECT_EQ(8U, client_->ifindex);
    EXPECT_STREQ("hot0", client_->ifname);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(Interface, LongNameIsCutInsideTheField) {
    hbs_set_interface(client_, 7, "abcdefghijklmnopqrstuvwxyz");
    EXPECT_STREQ("abcdefghijklmno", client_->ifname);
    EXPECT_EQ(0, client_->hotspot);
    hbs_set_interface(client_, 7, "abcdefghijklmnop");
    EXPECT_STREQ("abcdefghijklmno", client_->ifname);
}

TEST_F(Interface, ShorterNameLeavesNoRemains) {
    hbs_set_interface(client_, 7, "abcdefghijklmno");
    hbs_set_interface(client_, 7, "hot0");
    EXPECT_EQ(std::string("hot0").append(12, '\0'), std::string(client_->ifname, sizeof client_->ifname));
}

TEST_F(Interface, NullClientDoesNothing) {
    hbs_set_interface(nullptr, 7, "hot0");
}

class Addresses : public FieldsTest {
  protected:
    // Published with all three addresses on network 0, with every index entry.
    hbs_client *published_with_all(unsigned n) {
        hbs_client *client = add_client(n);
        memcpy(client->ipv4, ipv4_number(n).data(), 4);
        memcpy(client->ipv6, ipv6_number(n).data(), 16);
        memcpy(client->ll, ll_number(n).data(), 16);
        client->flags = HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6;
        hbs_publish(client);
        return client;
    }
    static size_t references_to(uint32_t dbpos) {
        size_t count = 0;
        for (const hbs_ip_entry *entry : ip_entries())
            count += entry->dbpos == dbpos ? 1 : 0;
        for (const hbs_ip_entry *entry : dhcp_entries())
            count += entry->dbpos == dbpos ? 1 : 0;
        for (const hbs_if_entry *entry : if_entries())
            count += entry->dbpos == dbpos ? 1 : 0;
        for (const hbs_pri_entry *entry : pri_entries())
            count += entry->dbpos == dbpos ? 1 : 0;
        return count;
    }
    static constexpr size_t ALL_ENTRIES = 7; // IP: 3, DHCP option: 2, interface, primary
};

TEST_F(Addresses, FirstIpv4_MarksNoChange) {
    hbs_set_ipv4(client_, ipv4_number(5).data());
    EXPECT_EQ(ipv4_number(5), std::to_array(client_->ipv4));
    EXPECT_EQ(0U, client_->flags);
}

TEST_F(Addresses, ReplacedIpv4_MarksAnAddressChange) {
    hbs_set_ipv4(client_, ipv4_number(5).data());
    hbs_set_ipv4(client_, ipv4_number(6).data());
    EXPECT_EQ(ipv4_number(6), std::to_array(client_->ipv4));
    EXPECT_EQ(HBS_CHANGED_ADDRESS, client_->flags);
}

TEST_F(Addresses, ReplacedIpv4_TakesAllEntriesOfTheClientOut) {
    hbs_client *client = published_with_all(2);
    hbs_client *other = published_with_all(3);
    ASSERT_EQ(ALL_ENTRIES, references_to(client->dbpos));
    hbs_set_ipv4(client, ipv4_number(9).data());
    EXPECT_EQ(0U, references_to(client->dbpos));
    EXPECT_EQ(ALL_ENTRIES, references_to(other->dbpos));
    EXPECT_EQ(1, semaphore_value());
}

TEST_F(Addresses, Ipv4OfZero_IsAReplacementToo) {
    hbs_client *client = published_with_all(2);
    client->flags = 0;
    hbs_set_ipv4(client, Ipv4{}.data());
    EXPECT_EQ(Ipv4{}, std::to_array(client->ipv4));
    EXPECT_EQ(0U, references_to(client->dbpos));
    EXPECT_EQ(HBS_CHANGED_ADDRESS, client->flags);
}

TEST_F(Addresses, EqualIpv4_DoesNothing) {
    hbs_client *client = published_with_all(2);
    const uint32_t flags = client->flags;
    hbs_set_ipv4(client, ipv4_number(2).data());
    EXPECT_EQ(flags, client->flags);
    EXPECT_EQ(ALL_ENTRIES, references_to(client->dbpos));
}

TEST_F(Addresses, FirstIpv6_MarksAnAddressChange) {
    hbs_set_ipv6(client_, ipv6_number(5).data());
    EXPECT_EQ(ipv6_number(5), std::to_array(client_->ipv6));
    EXPECT_EQ(HBS_CHANGED_ADDRESS, client_->flags);
}

TEST_F(Addresses, ReplacedIpv6_TakesTheOldEntryOutOnly) {
    hbs_client *client = published_with_all(2);
    client->flags = 0;
    hbs_set_ipv6(client, ipv6_number(9).data());
    EXPECT_EQ(ALL_ENTRIES - 1, references_to(client->dbpos));
    for (const hbs_ip_entry *entry : ip_entries())
        EXPECT_FALSE(entry->count == 19 && entry->key[3] == 0xfd) << "the old global address is still listed";
    EXPECT_EQ(HBS_CHANGED_ADDRESS, client->flags);
}

TEST_F(Addresses, EqualIpv6_DoesNothing) {
    hbs_client *client = published_with_all(2);
    const uint32_t flags = client->flags;
    hbs_set_ipv6(client, ipv6_number(2).data());
    EXPECT_EQ(flags, client->flags);
    EXPECT_EQ(ALL_ENTRIES, references_to(client->dbpos));
}

TEST_F(Addresses, FirstLinkLocal_MarksAChange) {
    hbs_set_ll(client_, ll_number(5).data());
    EXPECT_EQ(ll_number(5), std::to_array(client_->ll));
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(Addresses, ReplacedLinkLocal_TakesBothEntriesOfTheOldAddressOut) {
    hbs_client *client = published_with_all(2);
    client->flags = 0;
    hbs_set_ll(client, ll_number(9).data());
    EXPECT_EQ(ALL_ENTRIES - 2, references_to(client->dbpos));
    EXPECT_EQ(1U, dhcp_entries().size());
    EXPECT_EQ(2U, ip_entries().size());
    EXPECT_EQ(HBS_CHANGED, client->flags);
}

TEST_F(Addresses, EqualLinkLocal_DoesNothing) {
    hbs_client *client = published_with_all(2);
    const uint32_t flags = client->flags;
    hbs_set_ll(client, ll_number(2).data());
    EXPECT_EQ(flags, client->flags);
    EXPECT_EQ(ALL_ENTRIES, references_to(client->dbpos));
}

// After a flush the old dbpos may name another client's slot, and the old address another's entry.
TEST_F(Addresses, ClientWithAStaleDbpos_TakesNobodyElsesEntriesOut) {
    hbs_client *stale = published_with_all(2);
    hbs_shm_flush();
    hbs_client *holder = add_client(3);
    memcpy(holder->ipv4, ipv4_number(2).data(), 4);
    memcpy(holder->ipv6, ipv6_number(2).data(), 16);
    memcpy(holder->ll, ll_number(2).data(), 16);
    holder->flags = HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6;
    hbs_publish(holder);
    for (unsigned n = 10; published_of(stale->mac) == nullptr && holder->dbpos != stale->dbpos && n < 110;
         ++n) {
        hbs_shm_remove(holder);
        hbs_publish(holder);
    }
    ASSERT_EQ(stale->dbpos, holder->dbpos);
    ASSERT_EQ(ALL_ENTRIES, references_to(holder->dbpos));
    hbs_set_ipv4(stale, ipv4_number(7).data());
    hbs_set_ipv6(stale, ipv6_number(7).data());
    hbs_set_ll(stale, ll_number(7).data());
    hbs_set_nwidx(stale, 5);
    EXPECT_EQ(ALL_ENTRIES, references_to(holder->dbpos));
}

TEST_F(Addresses, ChangedNetwork_TakesAllEntriesOfTheClientOut) {
    hbs_client *client = published_with_all(2);
    hbs_client *other = published_with_all(3);
    client->flags = 0;
    hbs_set_nwidx(client, 1);
    EXPECT_EQ(0U, references_to(client->dbpos));
    EXPECT_EQ(ALL_ENTRIES, references_to(other->dbpos));
    EXPECT_EQ(0b10U, hbs_rnd_map(0).word[0]) << "the instance of the old network is free";
    EXPECT_EQ(0b10U, hbs_pri_map().word[0]);
    EXPECT_EQ(1U, hbs_pri_count());
    EXPECT_EQ(HBS_CHANGED_ADDRESS, client->flags);
    EXPECT_EQ(1, semaphore_value());
}

TEST_F(Addresses, ChangedNetwork_PublishedAnewHasEntriesOfTheNewNetworkOnly) {
    hbs_client *client = published_with_all(2);
    hbs_set_nwidx(client, 9); // folds onto 1
    hbs_publish(client);
    EXPECT_EQ(ALL_ENTRIES - 1, references_to(client->dbpos)) << "no primary entry on network 1";
    for (const hbs_ip_entry *entry : ip_entries())
        EXPECT_EQ(201U, entry->key[0]);
    for (const hbs_ip_entry *entry : dhcp_entries())
        EXPECT_EQ(201U, entry->key[0]);
    ASSERT_EQ(1U, if_entries().size());
    EXPECT_EQ(201U, if_entries()[0]->key[0]);
    EXPECT_EQ(0U, hbs_rnd_map(0).word[0]);
    EXPECT_EQ(1U, hbs_rnd_map(1).word[0]);
}

TEST_F(Addresses, NetworkThatFoldsOntoTheSame_LeavesTheEntries) {
    hbs_client *client = published_with_all(2);
    client->flags = 0;
    hbs_set_nwidx(client, 8);
    EXPECT_EQ(8, client->nwidx);
    EXPECT_EQ(ALL_ENTRIES, references_to(client->dbpos));
    EXPECT_EQ(HBS_CHANGED_ADDRESS, client->flags);
}

TEST_F(Addresses, NullClientOrAddressDoesNothing) {
    hbs_set_ipv4(nullptr, ipv4_number(1).data());
    hbs_set_ipv6(nullptr, ipv6_number(1).data());
    hbs_set_ll(nullptr, ll_number(1).data());
    hbs_set_ipv4(client_, nullptr);
    hbs_set_ipv6(client_, nullptr);
    hbs_set_ll(client_, nullptr);
    EXPECT_EQ(0U, client_->flags);
}

TEST_F(FieldsTest, StatusTime_IsZeroedWhole) {
    memset(client_->status_time, 7, sizeof client_->status_time);
    const uint8_t before = client_->nwidx = 9;
    hbs_clear_status_time(client_);
    EXPECT_EQ((std::array<uint8_t, 8>{}), std::to_array(client_->status_time));
    EXPECT_EQ(before, client_->nwidx);
    EXPECT_EQ(0U, client_->flags);
    hbs_clear_status_time(nullptr);
}

} // namespace client_fields_test
