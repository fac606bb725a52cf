"""The daemon as its documents describe it, in plain data. What users set is here; a command returns its answer, or None
where no handler ran."""

import ipaddress

import world
from events import Events
from files import BLACK, WHITE, mac_text
from records import ADDRESS, ARMED, DHCP_WAIT, DYNIP4, IP4, REMEMBERED, STIP4, USRIP4

LIST_BIT = {WHITE: 0x4, BLACK: 0x8}
USER = 0x10


def as_number(text):
    return int(ipaddress.ip_address(text))


class Documents(Events):
    def find_or_add(self, mac):
        if not any(mac):
            return None
        return self.by_mac(mac) or self.add(mac)

    def trust(self, kind, comment, client):
        if client is None:
            return -1
        client.comment = comment[:255] or client.comment
        if kind in (1, 2):
            self.set(client, kind, 0)
        self.publish_setting(client)
        self.files.trust(client.mac)
        return 0

    def distrust(self, kind, client):
        if client is None:
            return -1
        if kind in (1, 2):
            self.clear(client, kind, 0)
        self.publish_setting(client)
        self.files.distrust(client.mac)
        return 0

    def set_static_lease(self, network, address, mac, comment, host):
        if not any(mac):
            return -1
        client = self.by_mac(mac)
        if client is not None and client.nwidx & ~8:
            return -1
        if client is not None:
            self.indices.remove(client)
        holder = self.by_address(address)
        if holder is not None and holder.nwidx & ~8:
            return -1
        if client is None and network & ~8:
            return -1
        if holder is not None:
            self.indices.remove(holder)
        identity = [(getattr(client, name) if client is not None else b"") or b"null"
                    for name in ("oui", "serial_number", "product_class")]
        default = (client.host if client is not None else b"") or b"unknown"
        client = client or self.add_in(network, mac)
        if client is None:
            return -1
        self.end_command(holder)
        self.set_text(client, "host", host or default)
        for name, text in zip(("oui", "serial_number", "product_class"), identity):
            self.set_text(client, name, text)
        client.comment = comment[:255] or client.comment
        if len(address) == 4:
            self.write_static_lease(client, mac, world.text_of(address).encode(), identity)
            self.set_ipv4(client, address)
        client.commanded = True
        self.publish_setting(client)
        return 0

    def add_in(self, network, mac):
        client = self.add(mac)
        if client is not None:
            self.set_network(client, network)
        return client

    @staticmethod
    def end_command(holder):
        if holder is not None:
            holder.commanded = False

    def write_static_lease(self, client, mac, address, identity):
        if self.files.has_pair(0, mac, address):
            self.files.update_static(0, mac, address, client.host, identity)
            return
        self.files.delete_static(0, mac_text(mac), True)
        self.files.delete_static(1, address, True)
        self.files.add_static(0, mac, address, client.host, identity)

    def clear_static_lease(self, address):
        client = self.by_address(address)
        if client is None:
            return 0
        client.comment, client.commanded = b"", False
        if len(address) == 4:
            self.files.delete_static(1, world.text_of(address).encode(), True)
        self.commit(client)
        self.indices.remove(client)
        self.files.update_client(client)
        if len(address) == 4 and not client.flags & (DYNIP4 | USRIP4):
            self.remove(client)
        return 0

    def set_internal_lease(self, address, mac):
        if len(address) == 4:
            text = world.text_of(address).encode()
            self.files.delete_static(0, mac_text(mac), True)
            self.files.delete_static(1, text, True)
            self.files.add_static(0, mac, text, b"unknown", (b"null", b"null", b"null"))
            client = self.by_mac(mac)
            if client is not None:
                client.commanded = True
        return 0

    def comment_host(self, address, comment, host):
        client = self.by_address(address)
        if client is None:
            return None
        (self.set if comment or host else self.clear)(client, USER, 0)
        client.comment, client.host = comment[:255], host[:63]
        self.publish_setting(client)
        return 0

    def set_filter(self, kind, mac, values, comment, description, keywords, domains, word):
        client = self.find_or_add(mac)
        if client is None:
            return -1
        client.comment = comment[:255] or client.comment
        client.description, client.keyword_list, client.domain_list = description[:255], keywords[:255], domains[:255]
        client.mac_filter = word
        if kind not in LIST_BIT:
            return -1
        self.set(client, LIST_BIT[kind], 0)
        self.publish_setting(client)
        self.files.add_rule(kind, mac, values)
        self.indices.add_rule(kind, mac, values)
        return 0

    def clear_filter(self, kind, mac, values):
        if kind not in LIST_BIT:
            return -1
        left = self.files.clear_rule(kind, mac, values)
        self.indices.remove_rule(kind, mac, values)
        client = self.by_mac(mac)
        if client is None:
            return 0
        if not left:
            self.clear(client, LIST_BIT[kind], 0)
            if kind == BLACK:
                client.keyword_list = client.description = client.domain_list = b""
                client.mac_filter = 0
        self.commit(client)
        self.files.update_client(client)
        return 0

    def set_rule(self, kind, mac, values, instance):
        if self.by_mac(mac) is None:
            return None
        self.files.add_rule(kind if kind == BLACK else WHITE, mac, values)
        self.indices.replace_rule(kind, mac, values, instance)
        return 0

    def clear_rule(self, kind, mac, values):
        if self.by_mac(mac) is None:
            return None
        self.files.clear_rule(kind if kind == BLACK else WHITE, mac, values)
        self.indices.remove_rule(kind, mac, values)
        return 0

    def set_mode(self, mode):
        if mode == 0:
            self.ready, self.reload_pending = False, True
            self.flush()
            for client in [*self.clients, *self.nomac]:
                self.free(client)
        else:
            if self.reload_pending:
                self.load_clients()
                self.load_rules()
                self.reload_pending = False
            self.ready = True
        return 0

    # --- networks change

    def change_subnet(self, number, old, new, length):
        """Groups of addresses, None for no address."""
        if old is None or new is None:
            return -1
        mask = (1 << 32) - (1 << max(32 - length, 0))
        ends = [0, 0]
        if number in (1, 2):
            ends = [as_number(each[number - 1]) & ~mask for each in (world.POOL_STARTS, world.POOL_ENDS)]

        def move(address):
            host = as_number(address.decode()) & ~mask
            if not ends[0] <= host <= ends[1]:
                return None
            return str(ipaddress.ip_address(as_number(world.own_address(new)) & mask | host)).encode()
        return 0 if self.files.move_static(old, new, move) else -1

    def server(self, group, started):
        if not started:
            return
        own, _prefix, _name = world.NETWORKS[group - 1]
        interface = ipaddress.ip_interface(own)
        refused = (interface.ip, interface.network.network_address, interface.network.broadcast_address)

        def keep(text):
            address = ipaddress.ip_address(text)
            return text == "0.0.0.0" or (address in interface.network and address not in refused)
        self.files.prune(group - 1, keep)
        carried = ipaddress.ip_address(world.POOL_ENDS[group - 1]).packed
        self.flush()
        for client in list(self.clients):
            carried = self.revalidate(client, group - 1, carried)
        for client in self.each_client():
            self.publish(client)
        self.load_rules()

    def revalidate(self, client, network, carried):
        """Returns the address that the next client may take."""
        self.apply_static_lease(client)
        if client.nwidx != network:
            self.set(client, 0, ADDRESS)
            return carried
        remembered = client.trust & REMEMBERED
        if client.flags & IP4 != STIP4:
            if not remembered:
                self.drop(client)
            return carried
        found = self.files.static_lease(client.mac)
        if found is None and not remembered:
            self.drop(client)
            return carried
        carried = carried if found is None else ipaddress.ip_address(found.decode()).packed
        client.ipv4 = carried
        self.set(client, 0, ADDRESS)
        return carried

    def drop(self, client):
        for kind, running in client.timers.items():
            if running is not None:
                self.clear(client, 0, ARMED[kind])
                client.trust = 0 if kind == DHCP_WAIT else client.trust
        self.files.update_client(client)
        self.free(client)
