"""The settings files as they have to be: line by line, byte by byte."""

import struct

VERSION = b" version 1"
WHITE, BLACK = 1, 2
ELSEWHERE = 2  # the group of an address that is no network's own
EMPTY = {"host": b"~nohost~", "comment": b"~nocomment~", "keyword_list": b"~nokeyword_list~",
         "description": b"~nodescription~", "domain_list": b"~nodomain_list~"}


def mac_text(mac):
    return mac.hex(":").encode()


def encoded(client, name):
    return (getattr(client, name) or EMPTY[name]).hex().encode()


def client_line(client):
    words = [mac_text(client.mac), b"%d" % client.nwidx, encoded(client, "host"), encoded(client, "comment"),
             b"%08x" % client.trust, encoded(client, "keyword_list"), encoded(client, "description"),
             b"%d" % client.mac_filter, encoded(client, "domain_list")]
    return b" ".join(words)


def decoded(word, name):
    """A text that was one escape character is never restored."""
    text = b"" if word == b"1b" else bytes.fromhex(word.decode())
    return b"" if text == EMPTY[name] else text


def rule_text(values):
    signed = [value - (1 << 32) if value >= 1 << 31 else value for value in values[1:]]
    return b"%x %d %d %d %d %d" % (values[0], *signed)


class Files:
    """What lies in each file. `clients` and `trusted` are None while the file is not there."""

    def __init__(self):
        self.clients = None
        self.rules = {WHITE: [], BLACK: []}  # [mac, rules]
        self.trusted = None  # [mac]
        self.static = {0: [], 1: [], ELSEWHERE: []}  # by group, lines
        self.there = set()  # groups with a file of static leases
        self.hosts = {0: [], 1: []}
        self.dynamic = {0: [], 1: []}  # (mac, address, seconds, host)

    # --- clients

    def save_clients(self, clients):
        self.clients = [VERSION, *map(client_line, clients)]

    def update_client(self, client):
        if self.clients is None:
            return
        text, line = mac_text(client.mac), client_line(client)
        found = next((each for each in self.clients[1:] if each.startswith(text)), None)
        if found is None:
            self.clients.append(line)
        elif client.trust:
            self.clients[:] = [line if each == found else each for each in self.clients]
        else:
            self.clients[:] = [each for each in self.clients if not each.startswith(found)]

    # --- rules and trusted devices

    def _rule_line(self, kind, mac):
        return next((line for line in self.rules[kind] if line[0] == mac), None)

    def add_rule(self, kind, mac, values):
        line = self._rule_line(kind, mac)
        if line is None:
            self.rules[kind].append([mac, [values]])
            return
        for at, old in enumerate(line[1]):
            if old[:3] == values[:3]:
                line[1][at] = values
                return
        line[1].append(values)

    def clear_rule(self, kind, mac, values):
        """Whether rules of the MAC are left."""
        line = self._rule_line(kind, mac)
        if line is None:
            return False
        there = next((old for old in line[1] if old[:3] == values[:3]), None)
        if there is not None:
            line[1].remove(there)
        if not line[1]:
            self.rules[kind].remove(line)
        return bool(line[1])

    def trust(self, mac):
        self.trusted = self.trusted or []
        if mac not in self.trusted:
            self.trusted.append(mac)

    def distrust(self, mac):
        if self.trusted is not None:
            self.trusted = [each for each in self.trusted if each != mac]

    def reset(self):
        """What the command answers: whether the last of the files was there."""
        there = self.trusted is not None
        self.clients, self.rules, self.trusted = [VERSION], {WHITE: [], BLACK: []}, None
        return 0 if there else -1

    # --- static leases

    def static_lease(self, mac):
        """The address of the MAC's line, None when no group has one."""
        for group in (0, 1):
            for line in self.static[group]:
                if line.split()[0] == mac_text(mac):
                    return line.split()[1]
        return None

    def has_pair(self, group, mac, address):
        return any(line.split()[:2] == [mac_text(mac), address] for line in self.static[group])

    @staticmethod
    def _delete_first(lines, word, text):
        """All lines that hold the text of the first that matches go; whether there was one."""
        found = next((line for line in lines if line.split()[word] == text), None)
        if found is None:
            return False
        gone = b" ".join(found.split()[:2]) if len(found.split()) < 4 else found
        lines[:] = [line for line in lines if gone not in line]
        return True

    def delete_static(self, word, text, every):
        """word: 0 for a MAC, 1 for an address."""
        for group in (0, 1):
            for lines in (self.static[group], self.hosts[group]):
                while self._delete_first(lines, word, text) and every:
                    pass

    def add_static(self, group, mac, address, host, identity):
        self.there.add(group)
        self.static[group].append(mac_text(mac) + b" " + address)
        self.add_host(group, mac, address, host, identity)

    def add_host(self, group, mac, address, host, identity):
        words = [b"".join(b"_" if bytes((c,)).isspace() else bytes((c,)) for c in text) or b"null"
                 for text in (host, *identity)]
        self.hosts[group].append(b" ".join([mac_text(mac), address, b"0", words[0], b"1", *words[1:]]))

    def update_static(self, group, mac, address, host, identity):
        """The pair is there already, without an index, so its line stays."""
        lines = self.hosts[group]
        found = next((line for line in lines if mac_text(mac) == line.split()[0] or address == line.split()[1]), None)
        if found is not None:
            lines[:] = [line for line in lines if found not in line]
        self.add_host(group, mac, address, host, identity)

    def move_static(self, old, new, move):
        """Beside what is there; `move` gives an address's new text, None for one that stays behind. Whether there was
        a file."""
        if old not in self.there:
            return False
        words = [line.split() for line in self.static[old]]
        moved = [mac + b" " + move(address) for mac, address in words if move(address) is not None]
        self.there.discard(old)
        self.static[old] = []
        self.there.add(new)
        self.static[new] += moved
        return True

    def prune(self, group, keep):
        self.static[group] = [line for line in self.static[group] if line.startswith(b"00:00:00:00:00:00") or
                              keep(line.split()[1].decode())]
        self.dynamic[group] = []  # shorter than a block: nothing of it is kept

    def dynamic_lease(self, mac):
        for group in (0, 1):
            for each in self.dynamic[group]:
                if each[0] == mac:
                    return each
        return None

    # --- as they lie there

    def contents(self):
        """The files' bytes by a name for each."""
        def text(lines):
            return b"".join(line + b"\n" for line in lines)
        record = struct.Struct("=I4sI6s10sIIB")
        found = {"clients": text(self.clients or []),
                 "trusted": b"".join(record.pack(33, b"mac:", 6, mac, b"tr69_i_id:", 4, 0, 0)
                                     for mac in self.trusted or [])}
        for kind, name in ((WHITE, "white"), (BLACK, "black")):
            found[name] = text(mac_text(mac) + b";" + b"".join(rule_text(rule) + b";" for rule in rules)
                               for mac, rules in self.rules[kind])
        for group, lines in self.static.items():
            found[f"static {group}"] = text(lines)
        for group in (0, 1):
            found[f"hosts {group}"] = text(self.hosts[group])
        return found
