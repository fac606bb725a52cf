// Texts of a lease that is told again with less than before: taken away on a gateway, kept where the platform
// says so.
#include <gmock/gmock.h>

#include "events/lease_texts.h"
#include "store/client_fields.h"
#include "support/presence.h"

namespace lease_texts_test {

class LeaseTexts : public PresenceTest {
  protected:
    hbs_client *client_ = nullptr;
    void SetUp() override {
        PresenceTest::SetUp();
        client_ = add(MAC_A);
        tell("laptop", "02AB00", "SN-1", "PC-1");
    }
    void tell(const char *host, const char *oui, const char *serial_number, const char *product_class) {
        hbs_take_lease_host(client_, host);
        hbs_take_lease_identity(client_, oui, serial_number, product_class);
    }
    std::vector<std::string> texts() const {
        return {client_->host, client_->oui, client_->serial_number, client_->product_class};
    }
};

TEST_F(LeaseTexts, EmptyOnesTakeThemAwayOnAGateway) {
    EXPECT_THAT(texts(), testing::ElementsAre("laptop", "02AB00", "SN-1", "PC-1"));
    tell("", "", "", "");
    EXPECT_THAT(texts(), testing::ElementsAre("", "", "", ""));
}

TEST_F(LeaseTexts, EmptyOnesAreKeptWhereALeaseMayLackThem) {
    set("leases.may_lack_texts", 1);
    tell("", "", "SN-2", "");
    EXPECT_THAT(texts(), testing::ElementsAre("laptop", "02AB00", "SN-2", "PC-1"));
}

} // namespace lease_texts_test
