"""A model of what management commands do to the settings of a few clients, in memory and on file.

A command is a datagram and its effect on the model. The effects follow the daemon's rules exactly, so that after
any number of answered commands the files must hold what the model holds.
"""

import copy
import random
from dataclasses import dataclass, field, replace

from lab import settings_files, wire

MACS = [f"02:aa:00:00:00:{number:02x}" for number in range(0x11, 0x1b)]
ADDRESS_OF = {mac: f"192.168.0.{100 + number}" for number, mac in enumerate(MACS)}
LAN_ADDRESS = "192.168.0.1"
STATIC_LEASES = settings_files.STATIC_LEASES.format(LAN_ADDRESS)
HOST_RECORDS = settings_files.HOST_RECORDS.format(LAN_ADDRESS)
RULES_OF_A_LINE = 6
HOSTILE = (b"it's", b"$(reboot)", b"a\nb", b"\"`;&|/\\", b"caf\xc3\xa9", b"%s%n", b"x y  z", b"\x01\x1f")
LISTS = (wire.WHITE, wire.BLACK)
TRUST_NAMES = ("T-SITE", "T-SERV", "WHITE", "BLACK")  # by bit


@dataclass(frozen=True)
class Client:
    """One client as the daemon has it in memory; `address` is there once a static lease was set."""
    host: bytes = b""
    comment: bytes = b""
    trust: int = 0
    keywords: bytes = b""
    description: bytes = b""
    filter_word: int = 0
    domains: bytes = b""
    address: str = ""

    def record(self):
        """The client as settings_files.clients() returns it."""
        return (0, self.host, self.comment, self.trust, self.keywords, self.description, self.filter_word,
                self.domains)


@dataclass
class Settings:
    """Clients in memory, and what each file holds."""
    known: dict = field(default_factory=dict)
    clients: dict = field(default_factory=dict)
    white: dict = field(default_factory=dict)
    black: dict = field(default_factory=dict)
    trusted: dict = field(default_factory=dict)
    leases: dict = field(default_factory=dict)

    FILES = ("clients", "white", "black", "trusted", "leases")

    def rules(self, kind):
        return self.white if kind == wire.WHITE else self.black

    def store(self, mac, client):
        """The client changes in memory; its line is added, replaced, or (nothing is set on it) dropped."""
        self.known[mac] = client
        if mac in self.clients and client.trust == 0:
            del self.clients[mac]
        else:
            self.clients[mac] = client.record()

    def load(self):
        """What a start of the daemon makes of the files."""
        self.known = {mac: Client(*record[1:], self.leases.get(mac, "")) for mac, record in self.clients.items()}


def read():
    """The settings that the files hold, and those alone in memory."""
    found = Settings({}, settings_files.clients(), settings_files.rules(settings_files.WHITE_RULES),
                     settings_files.rules(settings_files.BLACK_RULES), settings_files.trusted_devices(),
                     settings_files.static_leases(STATIC_LEASES))
    settings_files.host_records(HOST_RECORDS)
    found.load()
    return found


# --- commands ----------------------------------------------------------------------------------------------

def any_text(dice, size):
    """Bytes for a field, hostile ones among them; none that have a meaning of their own in the file."""
    kind = dice.random()
    if kind < 0.1:
        return b""
    if kind < 0.5:
        return dice.choice(HOSTILE)
    return bytes(dice.randrange(1, 256) for _ in range(dice.randrange(2, size)))


def any_rule(dice):
    return (dice.randrange(1, RULES_OF_A_LINE + 1), 2, 3, *(dice.randrange(100) for _ in range(3)))


def set_rule(settings, kind, mac, rule):
    rules = settings.rules(kind).setdefault(mac, [])
    for at, old in enumerate(rules):
        if old[:3] == rule[:3]:
            rules[at] = rule
            return
    rules.append(rule)


def clear_rule(settings, kind, mac, rule):
    """Take the rule away; return whether rules of the MAC are left."""
    rules = settings.rules(kind).get(mac, [])
    there = [old for old in rules if old[:3] == rule[:3]]
    if not there:
        return bool(rules)
    rules.remove(there[0])
    if not rules:
        del settings.rules(kind)[mac]
    return bool(rules)


def trust(dice, mac):
    kind, comment = dice.choice([wire.SITE, wire.SERVICE]), any_text(dice, 256)

    def effect(settings):
        client = settings.known.get(mac, Client())
        settings.store(mac, replace(client, comment=comment or client.comment, trust=client.trust | kind))
        settings.trusted.setdefault(mac, 0)
    return wire.trusted(5, kind, wire.BY_MAC, mac, comment=comment), effect


def distrust(dice, mac):
    kind = dice.choice([wire.SITE, wire.SERVICE])

    def effect(settings):
        client = settings.known.get(mac)
        if client is not None:
            settings.store(mac, replace(client, trust=client.trust & ~kind))
            settings.trusted.pop(mac, None)
    return wire.trusted(6, kind, wire.BY_MAC, mac), effect


def comment_and_host(dice, mac):
    comment, host = any_text(dice, 256), any_text(dice, 64)

    def effect(settings):
        client = settings.known.get(mac)
        if client is not None and client.address:
            user = settings_files.TRUST_USER
            given = client.trust | user if comment or host else client.trust & ~user
            settings.store(mac, replace(client, comment=comment, host=host, trust=given))
    return wire.comment_host(ADDRESS_OF[mac], comment, host), effect


def set_lease(dice, mac):
    comment, host = any_text(dice, 256), any_text(dice, 64)

    def effect(settings):
        client = settings.known.get(mac, Client())
        settings.store(mac, replace(client, host=host or client.host or b"unknown",
                                    comment=comment or client.comment, address=ADDRESS_OF[mac]))
        settings.leases[mac] = ADDRESS_OF[mac]
    return wire.set_static_lease(mac, ADDRESS_OF[mac], 0, comment, host), effect


def clear_lease(_dice, mac):
    def effect(settings):
        client = settings.known.get(mac)
        if client is not None and client.address:
            settings.leases.pop(mac, None)
            settings.store(mac, replace(client, comment=b""))
            del settings.known[mac]
    return wire.clear_static_lease(ADDRESS_OF[mac]), effect


def add_to_list(dice, mac):
    kind, rule, word = dice.choice(LISTS), any_rule(dice), dice.randrange(-9, 1000)
    comment, description, keywords, domains = (any_text(dice, 256) for _ in range(4))

    def effect(settings):
        client = settings.known.get(mac, Client())
        settings.store(mac, replace(client, comment=comment or client.comment,
                                    description=description, keywords=keywords, domains=domains,
                                    filter_word=word, trust=client.trust | settings_files.LIST_BIT[kind]))
        set_rule(settings, kind, mac, rule)
    return wire.rule_record(7, kind, mac, rule, comment=comment, description=description,
                            keywords=keywords, domains=domains, filter_word=word % 2**32), effect


def take_from_list(dice, mac):
    kind, rule = dice.choice(LISTS), any_rule(dice)

    def effect(settings):
        left = clear_rule(settings, kind, mac, rule)
        client = settings.known.get(mac)
        if client is None:
            return
        if not left:
            client = replace(client, trust=client.trust & ~settings_files.LIST_BIT[kind])
            if kind == wire.BLACK:
                client = replace(client, keywords=b"", description=b"", domains=b"", filter_word=0)
        settings.store(mac, client)
    return wire.rule_record(8, kind, mac, rule), effect


def set_one_rule(dice, mac):
    kind, rule = dice.choice(LISTS), any_rule(dice)

    def effect(settings):
        if mac in settings.known:
            set_rule(settings, kind, mac, rule)
    return wire.rule_record(12, kind, mac, rule, rule_word=1), effect


def clear_one_rule(dice, mac):
    kind, rule = dice.choice(LISTS), any_rule(dice)

    def effect(settings):
        if mac in settings.known:
            clear_rule(settings, kind, mac, rule)
    return wire.rule_record(11, kind, mac, rule, rule_word=1), effect


def reset(_dice, _mac):
    def effect(settings):
        settings.clients, settings.white, settings.black, settings.trusted = {}, {}, {}, {}
    return wire.RESET_DEFAULTS, effect


COMMANDS = ((trust, 20), (distrust, 6), (comment_and_host, 10), (set_lease, 10), (clear_lease, 3),
            (add_to_list, 20), (take_from_list, 10), (set_one_rule, 5), (clear_one_rule, 5), (reset, 0.2))


def any_command(dice: random.Random):
    """A command for one of the clients: its datagram and its effect."""
    makers, weights = zip(*COMMANDS)
    return dice.choices(makers, weights)[0](dice, dice.choice(MACS))


def after(settings, effect):
    """The settings with an effect; those given stay as they are."""
    changed = copy.deepcopy(settings)
    effect(changed)
    return changed


def differences(found, *allowed):
    """Entries of the files that are in none of the allowed states, as texts; each is looked at by itself."""
    wrong = []
    for name in Settings.FILES:
        entries = [getattr(state, name) for state in allowed]
        there = getattr(found, name)
        for key in sorted({*there, *(key for state in entries for key in state)}):
            wanted = [state.get(key) for state in entries]
            if there.get(key) not in wanted:
                wrong.append(f"{name} of {key}: {there.get(key)} instead of {wanted}")
    return wrong


def unlike_for_readers(settings, listed):
    """What readers see of the clients (`listed`, by MAC text) that is not what the settings say, as texts: each client,
    with its address, its filter word and its trust."""
    if set(listed) != set(settings.known):
        return [f"the database holds {sorted(listed)} instead of {sorted(settings.known)}"]
    return [text for mac, client in settings.known.items() for text in unlike_for_a_reader(mac, client, listed[mac])]


def unlike_for_a_reader(mac, client, listed):
    """The same of one client, of which readers see `listed`."""
    there = listed["ipv4"], listed["mac_filter"], set(listed["trust"]) & set(TRUST_NAMES)
    names = {name for bit, name in enumerate(TRUST_NAMES) if client.trust & 1 << bit}
    if there == (client.address or None, client.filter_word, names):
        return []
    return [f"readers see {there} of {mac} instead of {client}"]
