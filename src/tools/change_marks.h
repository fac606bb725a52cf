// Tells which clients are new, changed or gone since an earlier look.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <hbs_db.h>

#include "tools/text_table.h"

enum class mark { none, fresh, changed, gone };

struct marked_client {
    hbs_client client;
    mark what;
};

// Whether two records of a client show different texts in these columns of the client table.
bool client_changed(const hbs_client &before, const hbs_client &now, const std::vector<size_t> &columns);

// The columns of the client table that are shown beside the marks when it is drawn like that.
std::vector<size_t> shown_client_columns(const std::vector<hbs_client> &clients, const drawing &how);

class change_marks {
  public:
    using time_point = std::chrono::steady_clock::time_point;

    // A mark stays for `lasting`, so that a person can see it.
    explicit change_marks(std::chrono::milliseconds lasting) : lasting_(lasting) {}

    // The clients of this look in their order, then those that went lately. At the first look nothing
    // is marked, and later only what changed in the columns given.
    std::vector<marked_client> update(const std::vector<hbs_client> &clients, time_point now,
                                      const std::vector<size_t> &columns);

  private:
    struct known {
        hbs_client client;
        mark what;
        time_point since;
    };
    void mark_gone(const std::vector<hbs_client> &clients, time_point now);

    std::chrono::milliseconds lasting_;
    std::map<std::string, known> known_; // by MAC, or by number for a client without one
    bool first_ = true;
};

// A client table whose first column shows the marks: '+' new, '*' changed, '-' gone.
text_table marked_table(const std::vector<marked_client> &clients);
