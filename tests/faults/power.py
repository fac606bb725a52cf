"""Power cuts at each change of the settings files: what a stream of commands does to them is recorded call by
call, and each beginning of the record is made a disk: everything that was done; only what was synced; and what was
synced with the renames and removals that the file system may have done early.
"""

import os
import random
import sys
from dataclasses import dataclass, field

import scenario
from lab import settings, settings_files, values

RECORD = values.DIRECTORY + "/record"
PLACE = scenario.PERSISTENT
SEED = 20261122


@dataclass
class File:
    """What was written, and how much of it is on the disk for sure."""
    data: bytes = b""
    synced: bytes = None  # None: nothing of it was ever synced


@dataclass
class Disk:
    """Names as programs see them, and as the last sync of their directory left them."""
    names: dict = field(default_factory=dict)
    durable: dict = field(default_factory=dict)

    def change(self, what, path, other, number, data):
        file = self.names.get(path)
        if what == "create":
            self.names[path] = File()
        elif what == "write":
            file.data += data
        elif what == "truncate":
            file.data = file.data[:number]
        elif what == "rename":
            self.names[other] = self.names.pop(path)
        elif what == "unlink":
            self.names.pop(path, None)
        elif what == "sync" and file is not None:
            file.synced = file.data
        elif what == "sync":
            inside = {name: each for name, each in self.names.items() if os.path.dirname(name) == path}
            self.durable = {name: each for name, each in self.durable.items() if os.path.dirname(name) != path}
            self.durable.update(inside)

    def disks(self):
        """What may be found after a cut, as contents by name."""
        yield "everything was written", {name: file.data for name, file in self.names.items()}
        yield "names were written, contents only when synced", {name: file.synced or b""
                                                                for name, file in self.names.items()}
        yield "only what was synced", {name: file.synced for name, file in self.durable.items()
                                       if file.synced is not None}


def changes():
    with open(RECORD, encoding="ascii") as file:
        for line in file:
            what, path, other, number, data = line.rstrip("\n").split(" ")
            yield what, path, other, int(number), bytes.fromhex(data)


def stream(count):
    """Sends the commands one by one; returns the states after each, and how far the record had come by then."""
    dice = random.Random(SEED)
    run = scenario.Run(record=RECORD)
    run.wait_served()
    states, ends = [settings.read()], [len(list(changes()))]
    for _number in range(count):
        datagram, effect = settings.any_command(dice)
        run.ask(datagram)
        states.append(settings.after(states[-1], effect))
        ends.append(len(list(changes())))
    run.end()
    return states, ends


def read_disk(contents):
    """The settings that a disk holds, read as after a start: what was left beside a file is cleared."""
    real = settings_files.content
    settings_files.content = lambda path: contents.get(path, b"")
    try:
        return settings.read()
    finally:
        settings_files.content = real


def torn(contents):
    """Contents without the last line of a file that is only added to, where it is not whole: the next addition ends
    it."""
    whole = dict(contents)
    for path in (settings.STATIC_LEASES, settings.HOST_RECORDS):
        data = whole.get(path, b"")
        whole[path] = data[:data.rfind(b"\n") + 1]
    return whole


def cut_everywhere(count):
    """One text for each cut after which something was neither old nor new."""
    values.replace(values.example())
    scenario.lay_down()
    if os.path.exists(RECORD):
        os.unlink(RECORD)
    open(RECORD, "w", encoding="ascii").close()
    states, ends = stream(count)
    disk, failed, cuts = Disk(), [], 0
    # What lay there before the record began was there for sure.
    for directory, _, names in os.walk(scenario.KEPT):
        for name in names:
            path = os.path.join(PLACE, os.path.relpath(os.path.join(directory, name), scenario.KEPT))
            with open(os.path.join(directory, name), "rb") as file:
                data = file.read()
            disk.names[path] = disk.durable[path] = File(data, data)
    for number, change in enumerate(changes(), start=1):
        disk.change(*change)
        done = max(at for at, end in enumerate(ends) if end <= number) if number >= ends[0] else 0
        allowed = (states[done], states[min(done + 1, len(states) - 1)])
        for how, contents in disk.disks():
            cuts += 1
            try:
                wrong = settings.differences(read_disk(torn(contents)), *allowed)
            except (settings_files.FileError, ValueError) as error:
                wrong = [str(error)]
            if wrong:
                failed.append(f"power cut after change {number} ({change[0]} {change[1]}), {how}: {'; '.join(wrong)}")
                print(f"script/faults: {failed[-1][:600]}", file=sys.stderr, flush=True)
    print(f"power cuts: {cuts}, at {number} changes of {count} commands")
    return failed
