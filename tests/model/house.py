"""Hours of a house on paper: the next step is whatever comes first, one of the daemon's timers that ends or what a
device does, at its own time; the seconds in between are only told."""

import heapq
import itertools
import random

import world
from crowds import leased
from histories import Player, difference
from records import Clock
from steps import INTERFACES, associated, lease4, left, neighbour, restart, static_lease, timer_ends, trust

MINUTE, HOUR = 60, 3600
LEASE_SECONDS = HOUR


class House(Player):
    def __init__(self, chance):
        super().__init__()
        self._random = random.Random(0 if chance is None else chance)
        self._plans = []  # (second, order of planning, function without arguments that makes steps and plans)
        self._order = itertools.count()
        self.timers_ended = self.restarts = 0
        self.memory = 0  # of the daemon at most, in KiB
        self._guests = itertools.count()

    def live(self, hours):
        with difference("the start"):
            model = self._model = self.begin()
        end = model.clock.seconds + hours * HOUR
        self._settle_in()
        while self._plans[0][0] < end:
            second, _order, act = heapq.heappop(self._plans)
            # Of two that come in one second one is a second late.
            model.clock = Clock(max(model.clock.seconds, second - 1))
            act()
        self._note_memory()

    def _note_memory(self):
        self.memory = max(self.memory, self.gateway.memory())

    # --- what happens

    def _plan(self, seconds, act):
        heapq.heappush(self._plans, (self._model.clock.seconds + seconds, next(self._order), act))

    def _between(self, least, most):
        return self._random.randint(least, most)

    def _do(self, *step):
        self.take(self._model, self.steps + 1, step)

    def timer_differences(self, model):
        """Plans their ends, too."""
        wrong = super().timer_differences(model)
        for client, kind, seconds in model.arms:
            armed = (self.restarts, client.timers[kind])
            if client.timers[kind] is not None:
                self._plan(seconds, lambda client=client, kind=kind, armed=armed: self._end(client, kind, armed))
        return wrong

    def _end(self, client, kind, armed):
        """A restart ends all that were armed, and counts them anew."""
        if armed == (self.restarts, client.timers[kind]):
            self.timers_ended += 1
            self._do(timer_ends, client, kind)

    # --- who lives there

    def _settle_in(self):
        self._do(trust, 1, world.WIRED[0], b"the printer")
        self._do(static_lease, world.WIRED[1], world.IPV4[0], 0, b"", b"nas")
        for number, mac in enumerate((*world.WIRED[:3], world.MOCA)):
            self._plan(number, lambda mac=mac, address=world.IPV4[number]: self._renew(mac, address))
        for number, mac in enumerate(world.STATIONS):
            self._plan(MINUTE, lambda mac=mac, address=world.IPV4[4 + number]: self._come(mac, address))
        self._plan(5 * MINUTE, self._look_around)
        self._plan(MINUTE, self._guest)
        self._plan(3 * HOUR, self._party)
        self._plan(7 * HOUR, self._restart)

    def _lease(self, mac, address):
        network = 1 if address[2] == 1 else 0
        self._do(lease4, mac, address, LEASE_SECONDS, 1, b"laptop", INTERFACES[network], (b"", b"", b""), None, None)

    def _renew(self, mac, address):
        """At half of its time, and now and then after it has ended."""
        self._lease(mac, address)
        away = self._random.random() < 0.1
        self._plan(self._between(2 * HOUR, 5 * HOUR) if away else LEASE_SECONDS // 2, lambda: self._renew(mac, address))

    def _come(self, mac, address):
        self._do(associated, mac, 1)
        self._lease(mac, address)
        self._plan(self._between(MINUTE, 3 * HOUR), lambda: self._leave(mac, address))

    def _leave(self, mac, address):
        self._do(left, mac)
        self._plan(self._between(MINUTE, 3 * HOUR), lambda: self._come(mac, address))

    def _look_around(self):
        """What the kernel tells of one of them."""
        number = self._random.randrange(3)
        state = self._random.choice(("reachable", "reachable", "stale", "gone"))
        self._do(neighbour, 0, world.IPV4[number], world.WIRED[number], state)
        self._plan(self._between(10, 10 * MINUTE), self._look_around)

    def _guest(self):
        """Comes once."""
        self._do(leased, next(self._guests))
        self._plan(self._between(10, 10 * MINUTE), self._guest)

    def _party(self):
        """Many at once, now and then more than there are records."""
        for _guest in range(self._between(20, 120)):
            self._do(leased, next(self._guests))
        self._plan(self._between(5 * HOUR, 30 * HOUR), self._party)

    def _restart(self):
        self._note_memory()
        self.restarts += 1
        self._do(restart)
        self._plan(7 * HOUR, self._restart)


def run(hours, chance):
    """Always the same house unless `chance` is a number. Returns it; what differs is raised."""
    house = House(chance)
    try:
        house.live(hours)
    finally:
        house.gateway.end()
    return house
