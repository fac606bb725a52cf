"""The steps that histories are made of: how each is drawn, what it does to the daemon, and to the model."""

import ipaddress

import world
from hypothesis import strategies
from lab import notices, wire

KNOWN_TEXTS = (b"", b"laptop", b"a b", b"x" * 62, b"\x1b")
HOSTILE = (b"it's", b"$(reboot)", b"a\nb", b"\"`;&|/\\", b"caf\xc3\xa9", b"%s%n", b"\x01\x1f")
LEASE_TIMES = (0, 3600, 86400)
ENDS = (0, 2000000000, 2100000000)
IDENTITIES = ((b"", b"", b""), (b"02AA00", b"S-1", b"TV"))
INTERFACES = tuple(each[2].encode() for each in world.NETWORKS)

macs = strategies.sampled_from(world.MACS)
stations = strategies.sampled_from((*world.STATIONS, world.WIRED[0], world.NOWHERE, world.OWN))
ipv4s = strategies.sampled_from(world.IPV4)
ipv6s = strategies.sampled_from(world.IPV6)
lls = strategies.sampled_from(world.LINK_LOCAL)
addresses = strategies.one_of(ipv4s, ipv4s, ipv6s, lls)
hosts = strategies.sampled_from((b"", b"laptop", b"tv.lan", b"n" * 70))
texts = strategies.sampled_from((*KNOWN_TEXTS, *HOSTILE)) | strategies.binary(max_size=40).map(
    lambda data: data.replace(b"\0", b"."))
kinds = strategies.sampled_from((1, 2, 1, 2, 3))
lists = strategies.sampled_from((1, 2, 1, 2, 3))
rules = strategies.tuples(strategies.integers(1, 3), *[strategies.integers(0, 2)] * 2, *[strategies.integers(0, 3)] * 3)
identities = strategies.sampled_from(IDENTITIES)
TRUST_SELECTORS = {4: wire.BY_IPV4, 16: wire.BY_IPV6}


def command(model, gateway, datagram, act, needs_ready=True):
    """Asks the daemon and the model; both answers, of which the model's is the last one's where no handler ran."""
    if model.ready or not needs_ready:
        answer = act()
        if answer is not None:
            model.result = answer
    return gateway.ask(datagram), model.result


def event(model, gateway, datagram, act):
    if model.ready:
        act()
    gateway.send(datagram)
    return None


def trust_datagram(code, kind, key, comment=b""):
    if len(key) == 6:
        return wire.trusted(code, kind, wire.BY_MAC, key.hex(":"), comment=comment)
    return wire.trusted(code, kind, TRUST_SELECTORS[len(key)], address=world.text_of(key), comment=comment)


def find(model, key):
    return model.by_mac(key) if len(key) == 6 else model.by_address(key)


def trust(model, gateway, kind, key, comment):
    def act():
        client = model.find_or_add(key) if len(key) == 6 else find(model, key)
        return model.trust(kind, comment, client)
    return command(model, gateway, trust_datagram(5, kind, key, comment), act)


def distrust(model, gateway, kind, key):
    return command(model, gateway, trust_datagram(6, kind, key), lambda: model.distrust(kind, find(model, key)))


def trust_by_nothing(model, gateway, code):
    """What makes no sense is answered in any mode."""
    return command(model, gateway, wire.trusted(code, 1, 0x14), lambda: -1, needs_ready=False)


def static_lease(model, gateway, mac, address, network, comment, host):
    datagram = wire.set_static_lease(mac.hex(":"), world.text_of(address), network, comment, host)
    answers = command(model, gateway, datagram,
                      lambda: model.set_static_lease(network, address, mac, comment, host[:63]))
    shown = world.text_of(address if len(address) == 4 else bytes(4))
    model.event(1, mac, network, ipv4=shown, host=host[:63], flag=1)
    return answers


def clear_static_lease(model, gateway, address):
    ipv4 = address if len(address) == 4 else bytes(4)
    holder = model.by_ipv4(ipv4)
    if holder is None:
        model.event(2)
    else:
        model.event(2, holder.mac, ipv4=world.text_of(ipv4))
    return command(model, gateway, wire.clear_static_lease(world.text_of(address)),
                   lambda: model.clear_static_lease(address))


def lease_of_unknown_family(model, gateway, mac):
    answers = command(model, gateway, wire.set_static_lease(mac.hex(":"), "0.0.0.0", family=7), lambda: None)
    model.event(1, mac, ipv4="0.0.0.0", flag=1)
    return answers


def internal_lease(model, gateway, mac, address):
    return command(model, gateway, wire.set_internal_lease(mac.hex(":"), world.text_of(address)),
                   lambda: model.set_internal_lease(address, mac))


def comment_host(model, gateway, address, comment, host):
    return command(model, gateway, wire.comment_host(world.text_of(address), comment, host),
                   lambda: model.comment_host(address, comment, host))


def set_filter(model, gateway, kind, mac, rule, texts_given, word):
    comment, description, keywords, domains = texts_given
    datagram = wire.rule_record(7, kind, mac.hex(":"), rule, comment=comment, description=description,
                                keywords=keywords, domains=domains, filter_word=word % 2**32)
    return command(model, gateway, datagram,
                   lambda: model.set_filter(kind, mac, rule, comment, description, keywords, domains, word))


def move_filter(model, gateway, kind, mac, new_mac, rule):
    def act():
        model.set_filter(kind, new_mac, rule, b"", b"", b"", b"", 0)
        return model.clear_filter(kind, mac, rule)
    return command(model, gateway, wire.rule_record(13, kind, mac.hex(":"), rule, new_mac=new_mac.hex(":")), act)


def clear_filter(model, gateway, kind, mac, rule):
    return command(model, gateway, wire.rule_record(8, kind, mac.hex(":"), rule),
                   lambda: model.clear_filter(kind, mac, rule))


def set_rule(model, gateway, kind, mac, rule, instance):
    return command(model, gateway, wire.rule_record(12, kind, mac.hex(":"), rule, rule_word=instance),
                   lambda: model.set_rule(kind, mac, rule, instance), needs_ready=False)


def clear_rule(model, gateway, kind, mac, rule):
    return command(model, gateway, wire.rule_record(11, kind, mac.hex(":"), rule),
                   lambda: model.clear_rule(kind, mac, rule), needs_ready=False)


def reset(model, gateway):
    return command(model, gateway, wire.RESET_DEFAULTS, model.files.reset, needs_ready=False)


def mode(model, gateway, number):
    return command(model, gateway, wire.route_mode(number), lambda: model.set_mode(number), needs_ready=False)


def dump(model, gateway):
    return command(model, gateway, wire.DUMP, lambda: 0, needs_ready=False)


def subnet(model, gateway, number, old, new, length):
    def address(group):
        return 0 if group is None else int(ipaddress.ip_address(world.own_address(group)))
    datagram = wire.pack("hbs_msg_subnet", code=102, index=number, old_ipv4=address(old), new_ipv4=address(new),
                         prefix_length=length)
    return command(model, gateway, datagram, lambda: model.change_subnet(number, old, new, length))


def server(model, gateway, group, started):
    model.server(group, started)  # also while the database is not ready
    gateway.send(wire.server(group, started))


# --- leases and stations --------------------------------------------------------------------------------------

def lease4(model, gateway, mac, address, seconds, dynamic, host, ifname, identity, network, adapter):
    fields = {"mac": mac, "address": address, "seconds": seconds, "dynamic": dynamic, "host": host, "ifname": ifname,
              "identity": identity, "file": b"file", "network": network, "adapter": adapter}

    datagram = wire.pack("hbs_msg_dhcpv4", code=105, mac=mac, ipv4=address, dynamic=dynamic, seconds=seconds, host=host,
                         ifname=ifname, oui=identity[0], serial_number=identity[1], product_class=identity[2],
                         lease_file=b"file", nwidx=wire.UNKNOWN if network is None else network,
                         adapter_type=wire.UNKNOWN if adapter is None else adapter)
    return event(model, gateway, datagram, lambda: model.lease4_and_tell(fields))


def information4(model, gateway, mac, address):
    def act():
        client = model.information4(mac, address, None, None)
        if client is not None:
            model.event(103, client.mac, identity=client)
    datagram = wire.pack("hbs_msg_dhcpv4", code=107, mac=mac, ipv4=address, nwidx=wire.UNKNOWN,
                         adapter_type=wire.UNKNOWN)
    return event(model, gateway, datagram, act)


def release4(model, gateway, mac, address, seconds):
    datagram = wire.pack("hbs_msg_dhcpv4_release", code=109, mac=mac, ipv4=address, dynamic=1, seconds=seconds)
    return event(model, gateway, datagram, lambda: model.release4(mac, address, 1, seconds))


def told_lease4(model, gateway, mac, address, seconds, dynamic, host, identity):
    """By the notification file."""
    if model.ready and any(mac):
        model.lease4({"mac": mac, "address": address, "seconds": seconds, "dynamic": dynamic, "host": host,
                      "ifname": INTERFACES[0], "identity": identity, "file": b"unknown file", "network": None,
                      "adapter": None})
    words = [text.decode() or notices.NO_NAME for text in identity]
    gateway.notify(notices.lease_line(mac.hex(":"), world.text_of(address), seconds, host.decode(), "l2sd0.2", dynamic,
                                      words))


def told_release4(model, gateway, mac, address):
    if model.ready and any(mac):
        model.release4(mac, address, 1, 1)
    gateway.notify(notices.release_line(mac.hex(":"), world.text_of(address)))


def kernel_can_tell(model, gateway, ll):
    """Whether the kernel would be asked for the MAC of a link-local address and knew it, some time later."""
    return any(ll) and model.by_ipv6(ll) is None and any(
        address == ll and state == "reachable" for (_name, address), (_mac, state) in gateway.neighbours.items())


def lease6(model, gateway, ll, address, end, host, identity):
    if kernel_can_tell(model, gateway, ll):
        return None
    datagram = wire.pack("hbs_msg_dhcpv6", code=106, ll=ll, ipv6=address, lease_end=end, host=host, oui=identity[0],
                         serial_number=identity[1], product_class=identity[2], lease_file=b"file6")
    return event(model, gateway, datagram,
                 lambda: model.lease6_and_tell(ll, address, end, host, identity, b"file6"))


def told_lease6(model, gateway, ll, address, end):
    if kernel_can_tell(model, gateway, ll):
        return
    client = model.lease6(ll, address, end, b"", (b"", b"", b""), b"") if model.ready else None
    told = "there is no valid data in the file"
    if client is not None or model.refused:
        told = "DHCPV6 LEASE event for" if client is not None else "no client with this linklocal address"
    gateway.notify6(notices.lease6_lines(world.text_of(address), world.text_of(ll), end), told)


def release6(model, gateway, ll, address):
    return event(model, gateway, wire.pack("hbs_msg_dhcpv6_release", code=108, ll=ll, ipv6=address),
                 lambda: model.release6_and_tell(ll, address))


def associated(model, gateway, mac, ssid):
    return event(model, gateway, wire.wifi_associated(mac.hex(":"), ssid), lambda: model.associated(mac, ssid))


def left(model, gateway, mac):
    return event(model, gateway, wire.wifi_left(mac.hex(":"), 1), lambda: model.left(mac))


def station_told(model, gateway, mac):
    def act():
        client = model.by_mac(mac)
        if client is not None:
            model.commit(client)
    return event(model, gateway, wire.wifi_info(mac.hex(":")), act)


# --- neighbours, timers, lives --------------------------------------------------------------------------------

def neighbour(model, gateway, interface, address, mac, state):
    """Only what the kernel tells of: changes."""
    name = INTERFACES[interface]
    index, known = gateway.index_of_interface[name], gateway.neighbours.get((name, address))
    if state == "gone":
        if known is None:
            return
        for _event in ("it failed", "it is deleted"):
            model.neighbour("gone", None, address, index)
    else:
        if known == (mac, state):
            return
        model.neighbour(state, mac, address, index)
    gateway.neighbour(name, address, mac, state)


def timer_ends(model, gateway, client, kind):
    number = client.timers[kind]
    netbios = model.expired(client, kind)
    if not gateway.expire(number, netbios):
        raise AssertionError(f"timer {number} of kind {kind} is not armed")


def expire(model, gateway, choice):
    """One of the timers that are armed ends."""
    armed = [(client, kind) for client in (*model.clients, *model.nomac) for kind, number in client.timers.items()
             if number is not None]
    if not armed:
        return
    timer_ends(model, gateway, *armed[choice % len(armed)])


def unplug(model, gateway, port):
    if port not in gateway.ports_down:
        model.port_down(port)
        gateway.unplug(port)


def restart(model, gateway):
    gateway.end()
    gateway.start(model.clock.seconds)
    model.start()


def write_leases(model, gateway, group, leases):
    chosen = {mac: (mac, address, seconds, host) for mac, address, seconds, host in leases}
    model.files.dynamic[group] = list(chosen.values())
    gateway.write_leases(group, model.files.dynamic[group])


def draw(function, *parts):
    return strategies.tuples(strategies.just(function), *parts)


own_addresses = strategies.sampled_from((0, 1, 2, 0, 1, 2, None))
optional_network = strategies.sampled_from((None, None, None, 0, 1))
optional_adapter = strategies.sampled_from((None, None, None, 1, 5))
devices = strategies.sampled_from((*world.WIRED, *world.STATIONS, world.MOCA))
leases = strategies.lists(strategies.tuples(devices, strategies.sampled_from(world.IPV4[:4]),
                                            strategies.sampled_from((0, 600)), strategies.sampled_from((b"dyn", b"n"))),
                          max_size=3)

STEPS = strategies.one_of(
    draw(trust, kinds, macs | addresses, texts), draw(distrust, kinds, macs | addresses),
    draw(trust_by_nothing, strategies.sampled_from((5, 6))),
    draw(static_lease, macs, ipv4s | ipv4s | ipv6s, strategies.sampled_from((0, 0, 8, 1)), texts, hosts),
    draw(static_lease, macs, ipv4s, strategies.just(0), texts, hosts),
    draw(clear_static_lease, addresses), draw(lease_of_unknown_family, macs),
    draw(internal_lease, macs, ipv4s), draw(comment_host, addresses, texts, hosts),
    draw(set_filter, lists, macs, rules, strategies.tuples(texts, texts, texts, texts), strategies.integers(-9, 9)),
    draw(set_filter, lists, macs, rules, strategies.tuples(texts, texts, texts, texts), strategies.integers(-9, 9)),
    draw(move_filter, lists, macs, macs, rules), draw(clear_filter, lists, macs, rules),
    draw(set_rule, lists, macs, rules, strategies.integers(0, 4)), draw(clear_rule, lists, macs, rules),
    draw(subnet, strategies.sampled_from((1, 2, 3)), own_addresses, own_addresses,
         strategies.sampled_from((24, 24, 16, 30, 32, 40, 0))),
    draw(subnet, strategies.just(1), strategies.sampled_from((0, 0, 2)), strategies.sampled_from((2, 2, 0)),
         strategies.just(24)),
    draw(reset), draw(mode, strategies.sampled_from((0, 1, 1, 2))), draw(dump),
    draw(server, strategies.sampled_from((1, 2)), strategies.sampled_from((0, 1))),
    draw(lease4, macs, ipv4s, strategies.sampled_from(LEASE_TIMES), strategies.sampled_from((0, 1)), hosts,
         strategies.sampled_from((b"", *INTERFACES)), identities, optional_network, optional_adapter),
    draw(lease4, devices, ipv4s, strategies.just(3600), strategies.just(1), hosts, strategies.just(INTERFACES[0]),
         identities, strategies.none(), strategies.none()),
    draw(information4, macs, ipv4s), draw(release4, macs, ipv4s, strategies.sampled_from((0, 1))),
    draw(told_lease4, macs, ipv4s, strategies.sampled_from(LEASE_TIMES), strategies.sampled_from((0, 1)), hosts,
         identities),
    draw(told_release4, macs, ipv4s),
    draw(lease6, lls | strategies.just(bytes(16)), ipv6s, strategies.sampled_from(ENDS), hosts, identities),
    draw(told_lease6, lls, ipv6s, strategies.sampled_from(ENDS)), draw(release6, lls, ipv6s),
    draw(associated, stations, strategies.sampled_from((1, 2, 3))), draw(left, stations), draw(station_told, macs),
    *[draw(neighbour, strategies.sampled_from((0, 1)), addresses, macs,
           strategies.sampled_from(("reachable", "stale", "gone")))] * 4,
    *[draw(expire, strategies.integers(0, 20))] * 2,
    draw(unplug, strategies.integers(1, 4)), draw(restart), draw(write_leases, strategies.sampled_from((0, 1)), leases))
