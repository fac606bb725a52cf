#include "host_places.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int places = 3;
constexpr int64_t trust_ns = 1000000000; // a mount over a folder above tells nobody

constexpr uint32_t folder_events =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr uint32_t content_events = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_DONT_FOLLOW;

struct watched_place {
    const char *variable;
    const char *default_path;
    bool contents; // a change of what is in the file counts too
    char path[PATH_MAX];
    char **environment; // where the variable stood when it was looked for last
    size_t at;
    const char *entry; // null = it is not there; `last` is the last entry then
    const char *last;
    int folder_wd; // -1 = the kernel does not tell
    int file_wd;   // -1 = none
    bool changed;
    int64_t told; // when `changed` was answered last, coarse monotonic nanoseconds
};

watched_place table[places] = {
    {"HBS_HOST_CONF", "/var/lib/hbs-host/gateway.conf", true, "", nullptr, 0, nullptr, nullptr, -1, -1, true,
     0},
    {"HBS_HOST_LOG", "/var/lib/hbs-host/log", false, "", nullptr, 0, nullptr, nullptr, -1, -1, true, 0},
    {"HBS_HOST_JOURNAL", "/var/lib/hbs-host/journal", false, "", nullptr, 0, nullptr, nullptr, -1, -1, true,
     0},
};

pthread_mutex_t places_mutex = PTHREAD_MUTEX_INITIALIZER;
int queue = -1;
bool queue_failed; // the kernel has none to give: every answer is "maybe"

// What the calling thread deals with just now.
thread_local struct {
    int depth;                 // 0 = nothing
    int64_t looked_at[places]; // coarse monotonic nanoseconds; 0 = not in this event
} current;

// Setting a variable anew gives it another entry, and nobody looks through all of them for each line of the
// log.
bool environment_is_as_seen(const watched_place *place) {
    return environ != nullptr && place->environment == environ && environ[place->at] == place->entry &&
           (place->entry != nullptr || place->at == 0 || environ[place->at - 1] == place->last);
}

const char *look_for(watched_place *place) {
    const size_t length = strlen(place->variable);
    place->environment = environ;
    place->entry = place->last = nullptr;
    for (place->at = 0; environ != nullptr && (place->entry = environ[place->at]) != nullptr; place->at++) {
        if (strncmp(place->entry, place->variable, length) == 0 && place->entry[length] == '=')
            return place->entry + length + 1;
        place->last = place->entry;
    }
    return "";
}

const char *name_of(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

int64_t coarse_nanoseconds() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void forget_queue() {
    if (queue >= 0)
        (void)close(queue);
    queue = -1;
    for (watched_place &place : table) {
        place.folder_wd = place.file_wd = -1;
        place.changed = true;
    }
}

// As host_place_is_still; from now on it has looked.
bool looked_already(host_place place) {
    if (current.depth == 0)
        return false;
    const int64_t now = coarse_nanoseconds();
    int64_t *at = &current.looked_at[static_cast<int>(place)];
    const bool already = *at == now;
    *at = now;
    return already;
}

// A child would take its parent's notifications away.
void after_fork_in_child() {
    current = {};
    (void)pthread_mutex_init(&places_mutex, nullptr);
    forget_queue();
    queue_failed = false;
}

bool open_queue() {
    static bool prepared;
    if (!prepared)
        (void)pthread_atfork(nullptr, nullptr, after_fork_in_child);
    prepared = true;
    queue = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    queue_failed = queue < 0;
    return queue >= 0;
}

// A symbolic link leads to a folder that is not watched.
bool is_link(const char *path) {
    struct stat file = {};
    return lstat(path, &file) == 0 && S_ISLNK(file.st_mode);
}

void watch(watched_place *place) {
    place->folder_wd = place->file_wd = -1;
    if (queue < 0 || is_link(place->path))
        return;
    char folder[PATH_MAX];
    memcpy(folder, place->path, sizeof folder);
    const size_t length = static_cast<size_t>(name_of(place->path) - place->path);
    folder[length] = '\0';
    place->folder_wd = inotify_add_watch(queue, length == 0 ? "." : folder, folder_events);
    if (place->contents)
        place->file_wd = inotify_add_watch(queue, place->path, content_events);
}

void take_event(const inotify_event *event) {
    for (watched_place &place : table) {
        const bool named = event->wd == place.folder_wd &&
                           (event->len == 0 || strcmp(event->name, name_of(place.path)) == 0);
        if (named || event->wd == place.file_wd || (event->mask & IN_Q_OVERFLOW) != 0)
            place.changed = true;
    }
}

void take_events() {
    alignas(inotify_event) char buffer[4096];
    ssize_t length = 0;
    while (queue >= 0 && (length = read(queue, buffer, sizeof buffer)) > 0) {
        const char *at = buffer;
        while (at < buffer + length) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            take_event(event);
            at += sizeof *event + event->len;
        }
    }
}

// The environment may name another file from now on.
void follow_environment(watched_place *place) {
    if (environment_is_as_seen(place))
        return;
    const char *named = look_for(place);
    const char *path = *named != '\0' ? named : place->default_path;
    if (strcmp(path, place->path) == 0)
        return;
    (void)snprintf(place->path, sizeof place->path, "%s", path);
    place->folder_wd = place->file_wd = -1;
    place->changed = true;
}

} // namespace

const char *host_place_path(host_place place) {
    return table[static_cast<int>(place)].path;
}

namespace {

// A place that changed is watched anew before the caller looks at it, so nothing happens unseen in between.
bool was_changed(watched_place *place) {
    follow_environment(place);
    const int64_t now = coarse_nanoseconds();
    const bool changed = place->changed || place->folder_wd < 0 || now - place->told >= trust_ns;
    if (changed) {
        if (queue >= 0 || (!queue_failed && open_queue()))
            watch(place);
        place->changed = false;
        place->told = now;
    }
    return changed;
}

} // namespace

bool host_place_changed(host_place which) {
    if (looked_already(which))
        return false;
    (void)pthread_mutex_lock(&places_mutex);
    take_events();
    const bool changed = was_changed(&table[static_cast<int>(which)]);
    (void)pthread_mutex_unlock(&places_mutex);
    return changed;
}

bool host_place_was_changed(host_place which) {
    if (looked_already(which))
        return false;
    (void)pthread_mutex_lock(&places_mutex);
    const bool changed = was_changed(&table[static_cast<int>(which)]);
    (void)pthread_mutex_unlock(&places_mutex);
    return changed;
}

bool host_place_is_watched(host_place which) {
    const watched_place *place = &table[static_cast<int>(which)];
    (void)pthread_mutex_lock(&places_mutex);
    const bool watched = place->folder_wd >= 0 && (!place->contents || place->file_wd >= 0);
    (void)pthread_mutex_unlock(&places_mutex);
    return watched;
}

void host_places_hold_still() {
    current.depth++;
}

void host_places_move_on() {
    if (current.depth > 0 && --current.depth == 0) // a child of fork was in none of its parent's events
        current = {};
}

bool host_place_is_still(host_place place) {
    return current.depth > 0 && current.looked_at[static_cast<int>(place)] == coarse_nanoseconds();
}
