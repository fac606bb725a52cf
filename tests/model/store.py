"""The daemon's clients as its documents describe them: working copies, what is published, how a client ends, timers
that are armed, what is loaded from files, the events for the TR-069 agent."""

import ipaddress

import world
from files import BLACK, WHITE, Files, decoded, mac_text
from indices import Indices, fold
from reclaim import Reclaim
from records import (ADDRESS, ARMED, CHANGED, DYNIP4, DYNIP6, ETHERNET, IP4, LEASE, MERGED, NO_MAC, ONLINE, STIP4, WIFI,
                     Client, Clock)


def quoted(text):
    return '"' + text.decode("ascii") + '"'


class Store(Reclaim):
    """Clients, how they are found and published, and how they end."""

    def __init__(self, seconds):
        self.files = Files()
        self.clock = Clock(seconds)
        self.index_of_interface = {}
        self.begin_life()

    def begin_life(self):
        """What a process has before it has read anything."""
        self.clients, self.nomac, self.published = [], [], []
        self.indices = Indices()
        self.counter = 0
        self.ready, self.reload_pending, self.result = True, False, -1
        self.bssid = {}
        self.arms = []  # (client, kind, seconds) of this step
        self.events, self.deletions = [], []
        self.ends = []  # what the log tells of clients that end for others
        self.refused = False  # a client, in this step

    def begin_step(self):
        self.clock = Clock(self.clock.seconds + 1)
        self.arms, self.events, self.deletions, self.ends, self.refused = [], [], [], [], False

    # --- finding

    def by_mac(self, mac):
        return next((each for each in self.clients if each.mac == mac), None) if mac is not None else None

    def by_ipv4(self, address):
        found = (each for each in self.clients if any(each.ipv4) and each.ipv4 == address)
        return next(found, None) or next((each for each in self.nomac if each.ipv4 == address), None)

    @staticmethod
    def _holder(clients, address):
        return next((each for each in clients if address in (each.ipv6, each.ll)), None) if any(address) else None

    def by_ipv6(self, address):
        return self._holder(self.clients, address) or self._holder(self.nomac, address)

    def by_address(self, address):
        return self.by_ipv4(address) if len(address) == 4 else self.by_ipv6(address)

    def nomac_by_ipv6(self, address):
        return self._holder(self.nomac, address)

    # --- beginning and end

    def each_client(self):
        """Some may end meanwhile, but not the one whose turn it is."""
        at = 0
        while at < len(self.clients):
            client = self.clients[at]
            yield client
            at = self.clients.index(client) + 1

    def add(self, mac):
        """None when all places are of clients that stay."""
        if not self.place_for_client():
            self.refused = True
            return None
        self.counter += 1
        client = Client(self.counter, mac or NO_MAC, self.clock)
        (self.nomac if mac is None else self.clients).append(client)
        if mac is not None:
            self.set(client, 0, CHANGED)
        return client

    def free(self, client):
        for kind in client.timers:
            client.timers[kind] = None
        for clients in (self.clients, self.nomac):
            if client in clients:
                clients.remove(client)

    def flush(self):
        for client in self.published:
            client.shown = None
        self.published = []
        self.indices.clear()

    def unpublish(self, client):
        if client in self.published:
            self.indices.remove(client)
            self.published.remove(client)
            client.shown = None

    def remove(self, client):
        """For good: all others are published anew."""
        if any(client.mac):
            self.files.delete_static(0, mac_text(client.mac), False)
        self.flush()
        self.free(client)
        for each in self.each_client():
            self.set(each, 0, ADDRESS)
            self.publish(each)
        self.load_rules()

    # --- publishing

    def commit(self, client):
        """Whether there was a place."""
        if client not in self.published:
            if not self.place_for_record():
                return False
            self.published.append(client)
        client.shown = client.snapshot()
        return True

    def publish(self, client):
        if self.commit(client):
            self.indices.update(client, client.flags & DYNIP4, client.flags & DYNIP6)

    def publish_setting(self, client):
        self.publish(client)
        self.files.update_client(client)

    def shown_by_mac(self, mac):
        found = (each.shown for each in self.published if each.shown.mac == mac)
        return next(found, None) if any(mac) else None

    # --- changing

    def set(self, client, trust, state):
        client.set_flags(self.clock, trust, state)

    def clear(self, client, trust, state):
        client.clear_flags(self.clock, trust, state)

    def set_text(self, client, name, value):
        client.set_text(self.clock, name, value)

    def set_network(self, client, number):
        if client in self.published and fold(client.nwidx) != fold(number):
            self.indices.remove(client)
        client.set_number(self.clock, "nwidx", number, ADDRESS)

    def set_adapter(self, client, adapter):
        port = world.port_of(client.mac) if adapter == ETHERNET else 0
        if (client.adapter_type, client.switch_port) != (adapter, port):
            client.adapter_type, client.switch_port = adapter, port
            self.set(client, 0, CHANGED)

    def set_interface(self, client, index, name=None):
        if client.ifindex == index and (name is None or name[:16] == client.ifname):
            return
        client.ifindex = index
        if name is None:
            name = next((each for each, number in self.index_of_interface.items() if number == index), client.ifname)
        client.ifname = name[:15]
        self.set(client, 0, CHANGED)

    def set_ipv4(self, client, address):
        if client.ipv4 == address:
            return
        replaced = any(client.ipv4)
        if replaced:
            self.indices.remove(client)
        client.ipv4 = address
        if replaced:
            self.set(client, 0, ADDRESS)

    def set_ipv6(self, client, address):
        if client.ipv6 == address:
            return
        if any(client.ipv6) and client in self.published:
            self.indices.remove_ipv6(client)
        client.ipv6 = address
        self.set(client, 0, ADDRESS)

    def set_ll(self, client, address):
        if client.ll == address:
            return
        if any(client.ll) and client in self.published:
            self.indices.remove_ll(client)
        client.ll = address
        self.set(client, 0, CHANGED)

    def set_source(self, client, group, source):
        if client.flags & group != source:
            self.clear(client, 0, group)
            self.set(client, 0, source)

    def take_wifi_index(self, client):
        if client.adapter_type == WIFI and client.mac in self.bssid:
            client.set_number(self.clock, "wifi_index", self.bssid[client.mac])

    def set_mac(self, client, mac):
        """A client of the nomac list gets its MAC, or goes up in the one that has it."""
        if mac is None or client not in self.nomac:
            return client
        known = self.by_mac(mac)
        if known is None:
            self.nomac.remove(client)
            client.mac = mac
            self.clients.append(client)
            self.set(client, 0, CHANGED)
            return client
        self.set(known, client.trust, client.flags)
        known.commanded = known.commanded or client.commanded
        for name, mark in (("ipv6", MERGED), ("ll", CHANGED), ("ipv4", MERGED), ("host", CHANGED),
                           ("comment", CHANGED), ("device_name", CHANGED), ("oui", CHANGED),
                           ("serial_number", CHANGED), ("product_class", CHANGED)):
            if any(getattr(client, name)) and not any(getattr(known, name)):
                setattr(known, name, getattr(client, name))
                self.set(known, 0, mark)
        self.free(client)
        self.unpublish(client)
        self.unpublish(known)
        self.publish(known)
        return known

    # --- timers and dates

    def start_timer(self, client, kind, seconds):
        self.set(client, 0, ARMED[kind])
        client.timers[kind] = self.arms  # until the number of the arming is known
        self.arms.append((client, kind, seconds))

    def stop_timer(self, client, kind):
        self.clear(client, 0, ARMED[kind])
        client.timers[kind] = None

    def set_lease(self, client, seconds):
        if seconds == 0:
            return
        client.status_time = client.status_time or (self.clock, 0)
        client.lease_end = (self.clock, seconds)
        self.start_timer(client, LEASE, seconds)

    # --- what is loaded

    def load_rules(self):
        for kind in (WHITE, BLACK):
            for mac, rules in self.files.rules[kind]:
                if self.by_mac(mac) is not None:
                    for values in rules:
                        self.indices.add_rule(kind, mac, values)

    def load_clients(self):
        for line in self.files.clients[1:]:
            words = line.split(b" ")
            mac = bytes.fromhex(words[0].decode().replace(":", ""))
            if not any(mac) or not world.is_lan_client(mac):
                continue
            client = self.add(mac)
            if client is None:
                continue
            client.nwidx = int(words[1])
            client.trust, client.flags = int(words[4], 16), 0
            for name, word in (("host", 2), ("comment", 3), ("keyword_list", 5), ("description", 6),
                               ("domain_list", 8)):
                setattr(client, name, decoded(words[word], name))
            client.mac_filter = int(words[7])
            self.apply_static_lease(client)
            self.publish(client)

    def apply_static_lease(self, client):
        address = self.files.static_lease(client.mac)
        if address is not None:
            self.set_ipv4(client, ipaddress.ip_address(address.decode()).packed)
            self.clear(client, 0, IP4)
            self.set(client, 0, STIP4)

    def load_dynamic_leases(self):
        for group in (0, 1):
            for mac, address, seconds, host in self.files.dynamic[group]:
                client = self.add(mac)
                self.set_network(client, group)
                self.clear(client, 0, IP4)
                self.set(client, 0, DYNIP4 if self.files.static_lease(mac) is None else STIP4)
                self.set_ipv4(client, address)
                self.set_text(client, "host", host)
                if seconds:
                    client.lease_start_uptime = world.UPTIME
                    self.set_lease(client, seconds)
                    self.set(client, 0, ONLINE)
                self.publish(client)

    def start(self):
        self.begin_life()
        if self.files.clients is None:
            self.load_dynamic_leases()
            self.files.save_clients(self.clients)
        else:
            self.load_clients()
        self.load_rules()

    # --- the agent's events

    def event(self, code, mac=None, number=0, adapter=0, ipv4="", ipv6="", ll="", host=b"", flag=0, identity=None):
        """identity: of whom OUI, serial number and product class are told."""
        texts = [getattr(identity, name) if identity is not None else b""
                 for name in ("oui", "serial_number", "product_class")]
        self.events.append(
            f'tr69 event {code} mac="{"" if mac is None else mac.hex(":").upper()}" number={number} adapter={adapter} '
            f'ipv4="{ipv4}" ipv6="{ipv6}" ll="{ll}" host={quoted(host)} flag={flag} oui={quoted(texts[0])} '
            f'serial={quoted(texts[1])} class={quoted(texts[2])} format=1 head=zero tail=zero')

    def event_read_back(self, code, client):
        """Addresses of the client itself; what readers see of the rest."""
        shown = self.shown_by_mac(client.mac)

        def address(value):
            return world.text_of(value) if any(value) else ""
        self.event(code, client.mac, client.nwidx, shown.adapter_type if shown else 0, address(client.ipv4),
                   address(client.ipv6), address(client.ll), shown.host if shown else b"",
                   int(client.status_time is not None), shown)
