"""Who goes when there is no place left: 96 clients are published, 512 known. What ends is told in the log."""

import world
from files import mac_text
from lab.header import constant
from records import ADAPTERS, FLAGS, ONLINE, STIP4, STIP6, TRUST

MOST_PUBLISHED, MOST_CLIENTS = constant("HBS_MAX_CLIENTS"), 512
PROTECTED, KEPT = 0x1F, ONLINE | STIP4 | STIP6


def client_text(client):
    """As the log shows a client."""
    def address(value, none):
        return world.text_of(value) if any(value) else none
    ll = f"LL {world.text_of(client.ll)}" if any(client.ll) else "no LL"
    host = f"({client.host.decode()}) " if client.host else ""
    labels = [label for bit, label in FLAGS if client.flags & bit]
    labels += [label for bit, label in TRUST if client.trust & bit]
    return (f"[{client.mac.hex(':')}] {ADAPTERS.get(client.adapter_type, 'on unknown if')}: index: {client.nwidx} "
            f"{address(client.ipv4, 'no IPv4')} - {address(client.ipv6, 'no IPv6')} - ({ll}) - {host}|" +
            "".join(label + "|" for label in labels))


def may_go(record, client):
    return not record.trust & PROTECTED and not record.flags & KEPT and not client.commanded


def is_nobody(client):
    return not any((*client.mac, *client.ipv4, *client.ipv6, *client.ll))


def oldest(clients, record):
    """Of equals the first."""
    return min(clients, key=lambda each: record(each).online_time.seconds, default=None)


def working_copy(client):
    return client


def published_record(client):
    return client.shown


class Reclaim:
    """For a Store: its lists are there."""

    def victim(self):
        """Of those that are published, whom a newcomer takes the place of."""
        return self.victim_by_rule() or next(filter(is_nobody, self.published), None)

    def victim_by_rule(self):
        return oldest([each for each in self.published if may_go(each.shown, each)], published_record)

    def oldest_unpublished(self, matches):
        return oldest([each for each in (*self.clients, *self.nomac)
                       if each not in self.published and matches(each)], working_copy)

    def end_for_good(self, client):
        self.ends.append(f"removed {client.mac.hex(':')}")
        self.counter -= 1
        self.free(client)

    def take_slot(self, client):
        """One without a MAC stays known, but for one that nobody could find. Returns the MAC of the record."""
        self.ends.append("reclaiming " + client_text(client.shown))
        self.indices.remove(client)
        mac, client.shown = client.shown.mac, None
        self.published.remove(client)
        if client not in self.nomac:
            self.end_for_good(client)
        elif is_nobody(client):
            self.free(client)
        return mac

    def drop_remains(self, mac):
        if any(mac):
            self.files.delete_static(0, mac_text(mac), False)

    def place_for_record(self):
        """Whether there is one."""
        if len(self.published) < MOST_PUBLISHED:
            return True
        victim = self.victim()
        if victim is None:
            self.ends.append("Failed to alloc")
            return False
        self.drop_remains(self.take_slot(victim))
        return True

    # --- the working copies

    def place_for_client(self):
        """Whether there is one."""
        return len(self.clients) + len(self.nomac) < MOST_CLIENTS or \
            self.end_unpublished(lambda each: may_go(each, each)) or self.end_published(self.victim_by_rule()) or \
            self.end_unpublished(is_nobody) or self.end_published(next(filter(is_nobody, self.published), None))

    def end_unpublished(self, matches):
        client = self.oldest_unpublished(matches)
        if client is None:
            return False
        self.ends.append("reclaiming " + client_text(client))
        self.end_for_good(client)
        self.drop_remains(client.mac)
        return True

    def end_published(self, client):
        if client is None:
            return False
        mac = self.take_slot(client)
        if client in self.nomac:
            self.end_for_good(client)
        self.drop_remains(mac)
        return True
