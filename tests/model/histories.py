"""A history is played to the daemon and to the model; after each step everything that can be seen has to agree."""

import contextlib
import subprocess

import crowds
import records
import segment
import steps
from documents import Documents
from gateway import Gateway, GatewayError
from hypothesis import HealthCheck, Phase, Verbosity, errors, given, seed, settings, strategies
from indices import NETWORK_KEY
from lab import daemon, database

LONGEST = 60
USUAL = 25  # steps of a history; a difference is shown with fewer
# How a daemon that ended or is stuck shows itself, and a database that is not whole.
GONE = (segment.SegmentError, GatewayError, daemon.DaemonError, database.DatabaseError, AssertionError, OSError,
        subprocess.SubprocessError)


class Difference(AssertionError):
    """The daemon and the model do not agree; the text says where."""


def told(step):
    function, *words = step
    return f"{function.__name__}({', '.join(map(repr, words))})"


@contextlib.contextmanager
def difference(where):
    """What does not come to its end is one, too."""
    try:
        yield
    except GONE as error:
        raise Difference(f"{where}: {error}") from error


class Player:
    def __init__(self):
        self.gateway = Gateway()
        self.steps = 0
        self.histories = 0
        self.ended = 0  # clients, for others
        self.found = False  # a difference, which is then looked for in shorter histories

    def begin(self):
        """Returns the model of a gateway that has never run, and now starts."""
        gateway = self.gateway
        gateway.begin_history()
        model = Documents(gateway.first_second())
        model.index_of_interface = gateway.index_of_interface
        gateway.start(model.clock.seconds)
        self.deletions = []
        model.start()
        return model

    def play(self, history):
        with difference("the start"):
            model = self.begin()
        for number, step in enumerate(history, start=1):
            self.take(model, number, step)
        self.histories += 1

    def take(self, model, number, step):
        gateway = self.gateway
        model.begin_step()
        where = f"step {number}, {told(step)}"
        with difference(where):
            gateway.set_seconds(model.clock.seconds)
            answers = step[0](model, gateway, *step[1:])
            settled = gateway.settle()
            model.clock.end()
            wrong = self.differences(model, answers, settled)
        if wrong:
            raise Difference("\n  ".join([where + ":", *wrong]))
        self.steps += 1
        self.ended += sum(each.startswith("removed") for each in model.ends)

    def differences(self, model, answers, settled):
        wrong = []
        if answers is not None and answers[0] != answers[1]:
            wrong.append(f"it answers {answers[0]} instead of {answers[1]}")
        elif settled != model.result:
            wrong.append(f"it repeats {settled} instead of {model.result}")
        wrong += self.timer_differences(model)
        wrong += of_lists("events", model.events, self.gateway.events())
        wrong += of_lists("clients that end for others", model.ends, self.gateway.ends())
        self.deletions += model.deletions
        wrong += of_lists("the bridge's deletions", self.deletions, self.gateway.deletions(len(self.deletions)))
        wrong += of_database(model, self.gateway.look())
        files = self.gateway.files()
        return wrong + [f"{name}: {files[name]!r} instead of {content!r}"
                        for name, content in model.files.contents().items() if files[name] != content]

    def timer_differences(self, model):
        """Gives the model's timers the numbers that they have; all that are armed have to be somebody's."""
        armed, deleted = self.gateway.timers()
        if [seconds for _number, seconds in armed] != [seconds for _client, _kind, seconds in model.arms]:
            return [f"timers are armed for {armed} instead of {model.arms}"]
        for (number, _seconds), (client, kind, _same) in zip(armed, model.arms):
            if client.timers[kind] is not None:
                client.timers[kind] = number
        living = {number for client in (*model.clients, *model.nomac) for number in client.timers.values()}
        return [f"timer {number} is deleted" for number in deleted if number in living] + \
               [f"timer {number} goes on" for number, _seconds in armed if number not in living | {*deleted}]


def of_lists(what, expected, found):
    return [] if expected == found else [f"{what}: {found} instead of {expected}"]


def of_database(model, look):
    wrong = of_lists("published", [each.shown.mac.hex(":") for each in model.published],
                     [records.field(record, "mac").hex(":") for record in look.clients.values()])
    if wrong:
        return wrong
    place = {}
    for client, (at, record) in zip(model.published, look.clients.items()):
        place[id(client)] = at
        name = client.shown.mac.hex(":")
        wrong += [f"{name}: {each}" for each in records.differences(client.shown, record)]
        if records.field(record, "dbpos") != at:
            wrong.append(f"{name}: dbpos is {records.field(record, 'dbpos')} instead of {at}")
    indices = model.indices
    for name, entries in (("ip", indices.ip), ("dhcp", indices.dhcp), ("interfaces", indices.interfaces),
                          ("primary", indices.primary)):
        wrong += of_lists(f"index {name}", [(tuple(key), place.get(id(client))) for key, client in entries],
                          look.entries[name])
    return wrong + of_lists("rules", [(NETWORK_KEY, each.instance, each.kind, each.mac, each.values)
                                      for each in indices.rules], look.rules)


def run(count, chance=None):
    """Plays so many histories, always the same ones unless `chance` is a number; returns the player. What differs is
    shrunk and raised."""
    player = Player()

    @settings(max_examples=count, derandomize=chance is None, database=None, deadline=None,
              suppress_health_check=list(HealthCheck), phases=(Phase.generate, Phase.shrink), print_blob=False,
              verbosity=Verbosity.normal, report_multiple_bugs=False)
    @given(strategies.lists(steps.STEPS, min_size=1, max_size=USUAL) |
           strategies.lists(steps.STEPS, min_size=USUAL, max_size=LONGEST) |
           strategies.lists(crowds.AMONG_OTHERS, min_size=1, max_size=USUAL))
    def play(history):
        try:
            player.play(history)
        except Difference as error:
            found = f"{error}\nafter\n  " + "\n  ".join(map(told, history))
            if not player.found:  # of one that does not come again this is all that is known
                player.found = True
                print(f"histories: {player.histories}; a difference, which is being made shorter: {found}", flush=True)
            raise Difference(found) from error

    try:
        (play if chance is None else seed(chance)(play))()
    except errors.Flaky as error:
        raise Difference("what is told of above did not come again") from error
    finally:
        player.gateway.end()
    return player
