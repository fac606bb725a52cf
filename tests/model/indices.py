"""The index lists as they have to be: who is in them, under which key, in which order."""

NETWORK_KEY = 200


def fold(nwidx):
    return nwidx - 8 if nwidx >= 8 else nwidx


def order(key):
    """Shorter keys come first, whatever their words."""
    return len(key), key


def ip_key(client, address):
    family = (1, 4) if len(address) == 4 else (2, 16)
    return (NETWORK_KEY + fold(client.nwidx), *family, *address)


def dhcp_key(client, address):
    return (NETWORK_KEY + fold(client.nwidx), 1 if len(address) == 4 else 2, *address, 0)


class Rule:
    def __init__(self, instance, kind, mac, values):
        self.instance, self.kind, self.mac, self.values = instance, kind, mac, values

    def is_of(self, kind, mac):
        return (self.kind, self.mac) == (kind, mac)

    def is_same(self, kind, mac, values):
        return self.is_of(kind, mac) and self.values[:3] == values[:3]


class Indices:
    """Entries are [key, client], rules are Rule."""

    def __init__(self):
        self.clear()

    def clear(self):
        self.ip, self.dhcp, self.interfaces, self.primary, self.rules = [], [], [], [], []
        self.rule_count = 0

    # --- those that clients are in

    @staticmethod
    def _insert(entries, key, client):
        """At its place; an entry with the key stays, whoever it is of."""
        for at, (there, _client) in enumerate(entries):
            if there == key:
                return
            if order(there) > order(key):
                entries.insert(at, [key, client])
                return
        entries.append([key, client])

    @staticmethod
    def _free_instance(taken):
        return next((number for number in range(1, 129) if number not in taken), 127)

    def update(self, client, dynamic4, dynamic6):
        for address in (client.ipv4, client.ipv6, client.ll):
            if any(address):
                self._insert(self.ip, ip_key(client, address), client)
        if any(client.ipv4) and dynamic4:
            self._insert(self.dhcp, dhcp_key(client, client.ipv4), client)
        if any(client.ll) and dynamic6:
            self._insert(self.dhcp, dhcp_key(client, client.ll), client)
        network = NETWORK_KEY + fold(client.nwidx)
        if all(each is not client for _key, each in self.interfaces):
            taken = {key[1] for key, _client in self.interfaces if key[0] == network}
            self._insert(self.interfaces, (network, self._free_instance(taken)), client)
        if network == NETWORK_KEY and all(each is not client for _key, each in self.primary):
            self.primary.append([(self._free_instance({key[0] for key, _client in self.primary}),), client])

    def remove(self, client):
        for entries in (self.ip, self.dhcp, self.interfaces, self.primary):
            entries[:] = [each for each in entries if each[1] is not client]

    @staticmethod
    def _remove_address(entries, key, client):
        entries[:] = [each for each in entries
                      if each[0][1:] != key[1:] or (each[0] != key and each[1] is not client)]

    def remove_ipv6(self, client):
        self._remove_address(self.ip, ip_key(client, client.ipv6), client)

    def remove_ll(self, client):
        self._remove_address(self.ip, ip_key(client, client.ll), client)
        self._remove_address(self.dhcp, dhcp_key(client, client.ll), client)

    # --- rules

    def _put(self, rule):
        """In the place of the one with its number; False when there was none."""
        for at, each in enumerate(self.rules):
            if each.instance == rule.instance:
                self.rules[at] = rule
                return True
        self.rules.append(rule)
        return False

    def add_rule(self, kind, mac, values):
        if any(each.is_same(kind, mac, values) for each in self.rules):
            return
        if not self._put(Rule(self.rule_count + 1, kind, mac, values)):
            self.rule_count += 1

    def remove_rule(self, kind, mac, values):
        freed = [each for each in self.rules if each.is_same(kind, mac, values)]
        if not freed:
            return
        self.rules = [each for each in self.rules if each not in freed]
        self.rule_count = max(0, self.rule_count - len(freed))
        for each in self.rules:
            each.instance -= each.instance > freed[-1].instance

    def replace_rule(self, kind, mac, values, instance):
        for position, each in enumerate(self.rules, start=1):
            if each.is_of(kind, mac) and each.instance == instance:
                if each.values[:3] != values[:3] and not self._put(Rule(position, kind, mac, values)):
                    self.rule_count += 1
                return
