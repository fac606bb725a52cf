// Scope guard: runs a function at the end of the scope, so that no path leaves a lock held or a file open.
#pragma once

template <typename Function> struct hbs_at_exit {
    Function function;
    explicit hbs_at_exit(Function f) : function(f) {}
    ~hbs_at_exit() { function(); }
    hbs_at_exit(const hbs_at_exit &) = delete;
    hbs_at_exit &operator=(const hbs_at_exit &) = delete;
};
