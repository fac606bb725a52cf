"""What comes from devices, and what it has to do: leases, stations, neighbours, links, and timers that end."""

import world
from records import (ANY_ADDRESS, ARMED, ASSOC, BSSID, DHCP_WAIT, DYNIP4, DYNIP6, IP4, IP6, LEASE, NO_IPV4, NO_IPV6,
                     ONLINE, ONLINE_TIMER, REACH, REACH_2, REMEMBERED, STIP4, STIP6, USRIP4, WIFI)
from store import Store


class Events(Store):
    """What comes from devices: leases, stations, neighbours, timers."""

    def flap(self, client, joins, flaps, last):
        interval_over = getattr(client, last) is None or (last == "last_join" and client.adapter_type == WIFI)
        if interval_over:
            client.flap_count = 0
        else:
            setattr(client, flaps, getattr(client, flaps) + 1)
        setattr(client, joins, getattr(client, joins) + 1)
        setattr(client, last, self.clock)

    def count_lease(self, client):
        if client.adapter_type == WIFI:
            shown = self.shown_by_mac(client.mac)
            if shown is None or shown.wifi_index != 1:  # the second SSID is the open one
                return
        self.flap(client, "join_req_count", "flap_count", "last_join")

    def add_leased(self, mac):
        client = self.add(mac)
        if client is not None:
            client.lease_start_uptime = world.UPTIME
        return client

    def lease4(self, lease):
        """lease: mac, address, seconds, dynamic, host, ifname, identity, file, network, adapter. The client or None."""
        if not world.is_lan_client(lease["mac"]):
            return None
        adapter = world.adapter_of(lease["mac"]) if lease["adapter"] is None else lease["adapter"]
        network = world.network_of(lease["address"]) if lease["network"] is None else lease["network"]
        if network < 0:
            return None
        client = self.by_mac(lease["mac"])
        is_new = client is None
        client = client or self.add_leased(lease["mac"])
        if client is None:
            return None
        self.stop_timer(client, DHCP_WAIT)
        self.stop_timer(client, LEASE)
        self.set_network(client, network)
        self.set_adapter(client, adapter)
        self.count_lease(client)
        self.set_text(client, "host", lease["host"])
        self.set_text(client, "device_name", lease["ifname"])
        if lease["ifname"] in self.index_of_interface:
            self.set_interface(client, self.index_of_interface[lease["ifname"]], lease["ifname"])
        client.lease_start_uptime = client.lease_start_uptime or world.UPTIME
        for name, text in zip(("oui", "serial_number", "product_class"), lease["identity"]):
            self.set_text(client, name, text)
        if lease["dynamic"]:
            self.set_lease(client, lease["seconds"])
        self.set_source(client, IP4, DYNIP4 if lease["dynamic"] else STIP4)
        if lease["dynamic"]:
            self.set_text(client, "lease_file", lease["file"])
        self.set_ipv4(client, lease["address"])
        if client.flags & ARMED[ONLINE_TIMER]:
            self.stop_timer(client, ONLINE_TIMER)
        self.set(client, 0, REACH | ONLINE)
        if is_new:
            self.take_wifi_index(client)
        self.publish(client)
        return client

    def lease4_and_tell(self, lease):
        client = self.lease4(lease)
        if client is not None:
            self.event(101, client.mac, client.nwidx, client.adapter_type, world.text_of(client.ipv4), host=client.host,
                       flag=1, identity=client)

    def release4(self, mac, address, dynamic, seconds):
        if not world.is_lan_client(mac) or seconds < 1 or dynamic < 0:
            return
        client = self.by_mac(mac)
        if client is not None and client.ipv4 == address:
            self.clear(client, 0, REACH | REACH_2 | DYNIP4 | USRIP4 | ONLINE)
            self.publish(client)

    def information4(self, mac, address, network, adapter):
        if not world.is_lan_client(mac):
            return None
        adapter = world.adapter_of(mac) if adapter is None else adapter
        network = world.network_of(address) if network is None else network
        client = self.by_mac(mac)
        if network < 0 or adapter == 0 or client is None:
            return None
        self.set_ipv4(client, NO_IPV4)
        self.publish(client)
        return client

    def leased6(self, ll, address):
        """Whom a DHCPv6 message means. The kernel's table is never asked: steps see to it that it cannot tell."""
        if not any(ll):
            return self.by_ipv6(address)
        client = self.by_ipv6(ll)
        if client is None:
            client = self.nomac_by_ipv6(address)
            client = client if client is not None and not any(client.ll) else None
        return client

    def end_nobody(self):
        for client in self.nomac:
            if not any((*client.ipv4, *client.ipv6, *client.ll)):
                self.unpublish(client)
                self.free(client)
                return

    def lease6(self, ll, address, end, host, identity, file):
        network = world.network_of(address)
        if network < 0 or not any((*ll, *address)):
            return None
        client = self.leased6(ll, address)
        if client is None:
            self.end_nobody()
            client = self.add_leased(None)
        if client is None:
            return None
        self.set_network(client, network)
        if host.split(b".")[0]:
            self.set_text(client, "host", host.split(b".")[0])
        client.lease_start_uptime = client.lease_start_uptime or world.UPTIME
        for name, text in zip(("oui", "serial_number", "product_class"), identity):
            self.set_text(client, name, text)
        client.lease_v6_end = end or None
        self.set_source(client, IP6, DYNIP6 if end else STIP6)
        if end:
            self.set_text(client, "lease_file6", file)
        if any(ll):
            self.set_ll(client, ll)
        self.set_ipv6(client, address)
        if client.flags & ARMED[ONLINE_TIMER]:
            self.stop_timer(client, ONLINE_TIMER)
        self.set(client, 0, REACH | ONLINE)
        self.publish(client)
        return client

    def lease6_and_tell(self, *lease):
        client = self.lease6(*lease)
        if client is not None:
            self.event(102, client.mac, client.nwidx, client.adapter_type, ipv6=world.text_of(client.ipv6),
                       ll=world.text_of(client.ll), host=client.host, flag=1, identity=client)

    def release6_and_tell(self, ll, address):
        client = self.release6(ll, address)
        if client is not None:
            self.event(104, client.mac, identity=client)

    def release6(self, ll, address):
        client = self.by_ipv6(ll if any(ll) else address)
        if client is not None:
            self.set_ipv6(client, NO_IPV6)
            self.set_ll(client, NO_IPV6)
        return client

    # --- stations

    def associated(self, mac, ssid):
        if not world.is_lan_client(mac) or ssid not in (1, 2):
            return
        client = self.by_mac(mac)
        if client is None:
            client = self.add(mac)
        elif client.wifi_index != ssid - 1:
            self.indices.remove(client)
            self.set(client, 0, BSSID)
        if client is None:
            return
        self.set_adapter(client, WIFI)
        self.set_network(client, ssid - 1)
        client.set_number(self.clock, "wifi_index", ssid - 1)
        self.set(client, 0, ASSOC | ONLINE)
        self.flap(client, "join_req_count", "flap_count", "last_join")
        if not client.flags & IP4:
            self.start_timer(client, DHCP_WAIT, 2)
        self.bssid[mac] = ssid - 1
        self.publish(client)

    def left(self, mac):
        client = self.by_mac(mac) if world.is_lan_client(mac) else None
        if client is not None:
            self.clear(client, 0, ASSOC | REACH | ONLINE)
            client.lease_start_uptime, client.status_time = 0, None
            self.commit(client)
            self.bssid.pop(mac, None)
        self.leave_bridge(mac)

    def leave_bridge(self, mac):
        if mac.hex(":") not in world.IN_NO_BRIDGE_LIST:
            self.deletions.append(mac.hex("-"))

    def port_down(self, port):
        for client in self.each_client():
            if client.switch_port == port:
                client.lease_start_uptime = 0
                self.clear(client, 0, ONLINE | REACH | REACH_2)
                client.status_time = None
                self.publish(client)
                self.leave_bridge(client.mac)

    # --- neighbours: the client that an entry is of, or None

    def neighbour4(self, mac, address, index):
        network = world.network_of(address)
        if network < 0 and address[:2] == b"\xa9\xfe":
            network = next((number for number, each in enumerate(world.NETWORKS)
                            if self.index_of_interface[each[2].encode()] == index), -1)
        adapter = world.adapter_of(mac)
        if adapter == 0 or network < 0:
            return None
        client, is_new = self.by_ipv4(address) or self.by_mac(mac), False
        if client is None and mac is not None:
            client, is_new = self.add(mac), True
        if client is None:
            return None
        self.set_network(client, network)
        self.set_adapter(client, client.adapter_type if mac is None else adapter)
        self.set_ipv4(client, address)
        if is_new:
            self.take_wifi_index(client)
        self.event_read_back(106, client)
        return client

    def neighbour6(self, mac, address):
        network, adapter = world.network_of(address), world.adapter_of(mac)
        if adapter == 0 or network < 0:
            return None
        client, is_new = self.by_ipv6(address) or self.by_mac(mac), False
        if client is None and mac is not None:
            client, is_new = self.add(mac), True
        if client is None:
            return None
        if is_new:
            self.event_read_back(107, client)
        self.set_network(client, network)
        self.set_adapter(client, client.adapter_type if mac is None else adapter)
        self.set_ipv6(client, address)
        if is_new:
            self.take_wifi_index(client)
        self.event_read_back(107, client)
        return client

    def neighbour_ll(self, mac, ll):
        adapter = world.adapter_of(mac)
        if adapter == 0:
            return None
        client = self.by_mac(mac)
        if client is None:
            return self.neighbour_ll_of_nobody(mac, adapter, ll)
        if client.ll == ll:
            return client
        had = any(client.ll)
        holder = self.nomac_by_ipv6(ll)
        if holder is not None:
            client = self.set_mac(holder, mac)
        for other in self.clients:
            if other is not client and other.ll == ll:
                self.set_ll(other, NO_IPV6)
                if other in self.published:
                    self.publish(other)
        if not had:
            self.set_adapter(client, adapter)
        self.set_ll(client, ll)
        return client

    def neighbour_ll_of_nobody(self, mac, adapter, ll):
        client = self.by_ipv6(ll)
        if client is None:
            if mac is None:
                return None
            client = self.add(mac)
            if client is None:
                return None
            self.set_adapter(client, adapter)
            self.set_ll(client, ll)
            self.take_wifi_index(client)
            return client
        if not any(client.mac):
            client = self.set_mac(client, mac)
        elif any(client.ll):
            return client
        self.set_adapter(client, adapter)
        self.set_ll(client, ll)
        return client

    def neighbour(self, state, mac, address, index):
        """An event of the kernel's: state is "reachable", "stale" or "gone"."""
        if not self.ready or not world.is_lan_client(mac):
            return
        if len(address) == 4:
            client = self.neighbour4(mac, address, index)
        else:
            client = self.neighbour_ll(mac, address) if address[0] == 0xFE else self.neighbour6(mac, address)
        if client is None:
            return
        self.set_interface(client, index & 0xFF)
        if state == "stale":
            self.publish(client)
            if client.adapter_type != WIFI:
                self.start_timer(client, ONLINE_TIMER, 600)
            return
        if state == "gone":
            client.lease_start_uptime = 0
            self.publish(client)
            self.event_read_back(108, client)
            return
        self.reachable(client)

    def reachable(self, client):
        if client.flags & ARMED[ONLINE_TIMER]:
            self.stop_timer(client, ONLINE_TIMER)
        self.set(client, 0, REACH | REACH_2)
        if not client.flags & ANY_ADDRESS:
            self.start_timer(client, DHCP_WAIT, 2)
        elif not client.flags & ONLINE:
            self.set(client, 0, ONLINE)
            if any(client.ipv6) and client.adapter_type != WIFI:
                self.flap(client, "dhcp_req_count", "dhcp_flap_count", "last_reach")
        self.publish(client)

    # --- timers

    def expired(self, client, kind):
        """Returns whether NetBIOS is asked."""
        client.timers[kind] = None
        if kind == LEASE and not client.trust & REMEMBERED:
            self.event(105, client.mac, adapter=client.adapter_type, identity=client)
            self.remove(client)
        elif kind == ONLINE_TIMER and client.flags & ONLINE:
            self.clear(client, 0, ONLINE)
            client.lease_start_uptime = 0
            self.commit(client)
        elif kind == DHCP_WAIT and client.flags & ARMED[DHCP_WAIT]:
            self.clear(client, 0, ARMED[DHCP_WAIT])
            return self.check_lease(client)
        return False

    def check_lease(self, client):
        has_static = any(client.mac) and self.files.static_lease(client.mac) is not None
        lease = self.files.dynamic_lease(client.mac)
        if lease is not None:
            self.set_text(client, "host", lease[3])
            self.set_ipv4(client, lease[1])
        self.clear(client, 0, IP4)
        if has_static:
            self.set(client, 0, STIP4)
        elif lease is None or lease[2] == 0:
            self.set(client, 0, USRIP4)
        else:
            self.set(client, 0, DYNIP4)
            self.set_lease(client, lease[2])
        if client in self.published:
            self.publish(client)
        self.commit(client)
        asked = client.flags & IP4 == USRIP4
        if asked and any(client.ipv4):
            self.publish(client)
        return asked
