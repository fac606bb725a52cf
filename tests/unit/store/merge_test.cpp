// A nomac client that gets its MAC: moved to the client list, or merged into the client that has it.
#include <cstddef>

#include "base/clock.h"
#include "store/client_fields.h"
#include "store/client_timers.h"
#include "store/index.h"
#include "store/merge.h"
#include "store/pools.h"
#include "support/working_clients.h"

namespace merge_test {

class SetMac : public ClientsTest {
  protected:
    void SetUp() override {
        ClientsTest::SetUp();
        nomac_ = hbs_add(nullptr);
        nomac_->trust = 0;
    }
    hbs_client *nomac_ = nullptr;
};

TEST_F(SetMac, NullMac_ReturnsTheClientUnchanged) {
    const hbs_client before = *nomac_;
    EXPECT_EQ(nomac_, hbs_set_mac(nomac_, nullptr));
    EXPECT_EQ(0, memcmp(&before, nomac_, sizeof before));
    EXPECT_TRUE(hbs_is_nomac(nomac_));
}

TEST_F(SetMac, UnknownMac_MovesTheClientToTheTailOfTheClientList) {
    hbs_client *other = add_client(2);
    EXPECT_EQ(nomac_, hbs_set_mac(nomac_, mac_number(1).data()));
    EXPECT_EQ((std::vector{other, nomac_}), working_clients());
    EXPECT_TRUE(nomac_clients().empty());
    EXPECT_EQ(mac_number(1), std::to_array(nomac_->mac));
    EXPECT_EQ(HBS_CHANGED, nomac_->flags);
}

TEST_F(SetMac, MovedClientKeepsItsSlot) {
    hbs_publish(nomac_);
    const uint32_t dbpos = nomac_->dbpos;
    hbs_set_mac(nomac_, mac_number(1).data());
    hbs_publish(nomac_);
    EXPECT_EQ(dbpos, nomac_->dbpos);
    EXPECT_EQ(1U, published_clients().size());
    EXPECT_NE(nullptr, published_of(mac_number(1).data()));
}

TEST_F(SetMac, ClientThatHasAMac_IsReturnedUnchanged) {
    hbs_client *client = add_client(1);
    hbs_client *other = add_client(2);
    EXPECT_EQ(client, hbs_set_mac(client, mac_number(1).data()));
    EXPECT_EQ(client, hbs_set_mac(client, mac_number(2).data()));
    EXPECT_EQ((std::vector{client, other}), working_clients());
    EXPECT_EQ(mac_number(1), std::to_array(client->mac));
    EXPECT_EQ(nullptr, hbs_set_mac(nullptr, mac_number(1).data()));
}

class Merge : public SetMac {
  protected:
    void SetUp() override {
        SetMac::SetUp();
        existing_ = add_client(1);
        existing_->flags = 0;
    }
    hbs_client *merge() { return hbs_set_mac(nomac_, mac_number(1).data()); }
    hbs_client *existing_ = nullptr;
};

TEST_F(Merge, ReturnsTheExistingClientAndFreesTheOther) {
    EXPECT_EQ(existing_, merge());
    EXPECT_EQ(std::vector{existing_}, working_clients());
    EXPECT_TRUE(nomac_clients().empty());
    EXPECT_FALSE(hbs_is_working_copy(nomac_));
    EXPECT_EQ(2U, hbs_client_counter()) << "a merge leaves the counter";
}

TEST_F(Merge, OrsTrustAndFlags) {
    existing_->trust = HBS_TRUST_SITE;
    existing_->flags = HBS_FLAG_ASSOC;
    nomac_->trust = HBS_TRUST_USER;
    nomac_->flags = HBS_FLAG_REACH | HBS_FLAG_ONLINE;
    const uint32_t born = existing_->online_time;
    hbs_clock_advance(100);
    merge();
    EXPECT_EQ(HBS_TRUST_SITE | HBS_TRUST_USER, existing_->trust);
    EXPECT_EQ(HBS_FLAG_ASSOC | HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_CHANGED, existing_->flags);
    EXPECT_GE(existing_->online_time, born + 100) << "it came on line by the merge";
}

TEST_F(Merge, EqualStateAndNothingToCopy_MarksNothing) {
    existing_->flags = nomac_->flags = HBS_FLAG_REACH;
    merge();
    EXPECT_EQ(HBS_FLAG_REACH, existing_->flags);
}

TEST_F(Merge, CopiesTheIpv6AddressThatIsMissing) {
    memcpy(nomac_->ipv6, ipv6_number(1).data(), 16);
    merge();
    EXPECT_EQ(ipv6_number(1), std::to_array(existing_->ipv6));
    EXPECT_EQ(HBS_CHANGED_MERGED, existing_->flags);
}

TEST_F(Merge, CopiesTheLinkLocalAddressThatIsMissing) {
    memcpy(nomac_->ll, ll_number(1).data(), 16);
    merge();
    EXPECT_EQ(ll_number(1), std::to_array(existing_->ll));
    EXPECT_EQ(HBS_CHANGED, existing_->flags);
}

TEST_F(Merge, CopiesTheIpv4AddressThatIsMissing) {
    memcpy(nomac_->ipv4, ipv4_number(1).data(), 4);
    merge();
    EXPECT_EQ(ipv4_number(1), std::to_array(existing_->ipv4));
    EXPECT_EQ(HBS_CHANGED_MERGED, existing_->flags);
}

TEST_F(Merge, KeepsTheAddressesThatAreThere) {
    memcpy(existing_->ipv4, ipv4_number(1).data(), 4);
    memcpy(existing_->ipv6, ipv6_number(1).data(), 16);
    memcpy(existing_->ll, ll_number(1).data(), 16);
    memcpy(nomac_->ipv4, ipv4_number(2).data(), 4);
    memcpy(nomac_->ipv6, ipv6_number(2).data(), 16);
    memcpy(nomac_->ll, ll_number(2).data(), 16);
    merge();
    EXPECT_EQ(ipv4_number(1), std::to_array(existing_->ipv4));
    EXPECT_EQ(ipv6_number(1), std::to_array(existing_->ipv6));
    EXPECT_EQ(ll_number(1), std::to_array(existing_->ll));
    EXPECT_EQ(0U, existing_->flags);
}

struct MergedText {
    const char *name;
    size_t offset;
    size_t size;
};

#define MERGED_TEXT(field)                                                                                   \
    MergedText {                                                                                             \
#field, offsetof(hbs_client, field), sizeof(hbs_client::field)                                       \
    }

class MergeText : public Merge, public testing::WithParamInterface<MergedText> {
  protected:
    char *text_of(hbs_client *client) const { return reinterpret_cast<char *>(client) + GetParam().offset; }
};

INSTANTIATE_TEST_SUITE_P(All, MergeText,
                         testing::Values(MERGED_TEXT(host), MERGED_TEXT(comment), MERGED_TEXT(device_name),
                                         MERGED_TEXT(oui), MERGED_TEXT(serial_number),
                                         MERGED_TEXT(product_class)),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(MergeText, EmptyTextIsFilled) {
    const std::string longest(GetParam().size - 1, 'x');
    memcpy(text_of(nomac_), longest.c_str(), longest.size());
    merge();
    EXPECT_EQ(longest, std::string(text_of(existing_)));
    EXPECT_EQ(HBS_CHANGED, existing_->flags);
}

TEST_P(MergeText, TextThatIsThereIsKept) {
    memcpy(text_of(nomac_), "new", 4);
    memcpy(text_of(existing_), "old", 4);
    merge();
    EXPECT_STREQ("old", text_of(existing_));
    EXPECT_EQ(0U, existing_->flags);
}

class NotMerged : public MergeText {};

INSTANTIATE_TEST_SUITE_P(Others, NotMerged,
                         testing::Values(MERGED_TEXT(lease_file), MERGED_TEXT(lease_file6),
                                         MERGED_TEXT(ifname), MERGED_TEXT(description),
                                         MERGED_TEXT(keyword_list), MERGED_TEXT(domain_list)),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(NotMerged, StaysAsItWas) {
    memcpy(text_of(nomac_), "new", 4);
    merge();
    EXPECT_STREQ("", text_of(existing_));
    EXPECT_EQ(0U, existing_->flags);
}

TEST_F(Merge, PerClientFilesAreLeftAlone) {
    write_file("/var/tmp/lease_a", "x");
    hbs_set_lease_file(nomac_, "lease_a");
    merge();
    EXPECT_TRUE(file_exists("/var/tmp/lease_a"));
}

TEST_F(Merge, PublishesTheSurvivorOnceWithTheAddressesOfBoth) {
    memcpy(nomac_->ipv6, ipv6_number(5).data(), 16);
    hbs_publish(nomac_);
    memcpy(existing_->ipv4, ipv4_number(5).data(), 4);
    hbs_publish(existing_);
    ASSERT_EQ(2U, published_clients().size());
    merge();
    ASSERT_EQ(1U, published_clients().size());
    const hbs_client *slot = published_clients()[0];
    EXPECT_EQ(existing_->dbpos, slot->dbpos);
    EXPECT_EQ(slot, &hbs_slot_of(existing_)->record);
    EXPECT_EQ(ipv6_number(5), std::to_array(slot->ipv6));
    EXPECT_EQ(ipv4_number(5), std::to_array(slot->ipv4));
    EXPECT_EQ(existing_->flags, slot->flags);
    ASSERT_EQ(2U, ip_entries().size());
    for (const hbs_ip_entry *entry : ip_entries())
        EXPECT_EQ(existing_->dbpos, entry->dbpos);
    EXPECT_EQ(1U, if_entries().size());
    EXPECT_EQ(1U, pri_entries().size());
}

TEST_F(Merge, PublishesTheSurvivorAnew) {
    hbs_publish(existing_);
    hbs_client *other = add_published(2);
    existing_->nwidx = 3; // its entries are still those of network 0
    merge();
    ASSERT_EQ(2U, published_clients().size());
    EXPECT_EQ(other->dbpos, published_clients()[0]->dbpos);
    EXPECT_EQ(existing_->dbpos, published_clients()[1]->dbpos) << "at the tail";
    ASSERT_EQ(2U, if_entries().size());
    EXPECT_EQ(203U, if_entries()[1]->key[0]);
    EXPECT_EQ(1U, pri_entries().size());
}

TEST_F(Merge, PublishesTheSurvivorAlsoWhenNeitherWasPublished) {
    merge();
    ASSERT_EQ(1U, published_clients().size());
    EXPECT_EQ(existing_->dbpos, published_clients()[0]->dbpos);
}

TEST_F(Merge, DeletesTheTimersOfTheOther) {
    hbs_lease_timers_register([](hbs_client *) {}, [](hbs_client *) {}, [](hbs_client *) {});
    nomac_->trust = HBS_TRUST_WHITE;
    hbs_lease_timer_start(nomac_, HBS_TIMER_DHCP_WAIT, 3600);
    hbs_lease_timer_start(existing_, HBS_TIMER_ONLINE, 3600);
    const hbs_timer_slot *slot = hbs_client_timer_slot(nomac_, HBS_TIMER_DHCP_WAIT);
    ASSERT_TRUE(slot->exists);
    merge();
    EXPECT_FALSE(slot->exists);
    EXPECT_TRUE(hbs_client_timer_slot(existing_, HBS_TIMER_ONLINE)->exists);
    EXPECT_EQ(HBS_TRUST_WHITE, existing_->trust) << "taken over before the waiting timer wiped it";
    EXPECT_EQ(0U, existing_->dhcp_wait_timer);
    hbs_lease_timers_clear(existing_);
}

} // namespace merge_test
