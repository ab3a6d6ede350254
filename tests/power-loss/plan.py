"""
What the service is told in the guest, call by call, and what its files must hold after each.

The calls go through both doors of the service, the methods that replace a whole direction and the
requests that change one item, and each names its own number in what it sets: no two configurations
are the same.
"""

import json
import random
from dataclasses import dataclass

from configuration_files import FILES, ITEMS

# From less than a sector to many blocks of the file system; the last is as many as there can be.
COUNTS = (1, 1, 2, 5, 12, 40, 100, 255, 256)
MOST_ITEMS = 256
LONGEST_PADDING = 400
# In the middle of a life, so that the file system commits by itself, which takes five seconds.
REST_SECONDS = 7


@dataclass(frozen=True)
class Save:
    """A call, the one file of the FILES that it saves, and the configuration it leaves there."""

    number: int
    name: str
    call: str
    configuration: dict


class Writer:
    """Makes the calls of one life of the service, which begins with no file at all."""

    def __init__(self, chance):
        self.chance = chance
        self.current = {}

    def next_save(self, number, name):
        """A call that can follow those so far."""
        configuration = self.current.get(name)
        change = self.chance.random() if configuration else 0
        if change < 0.5:
            call, configuration = self._replace(number, name)
        elif change < 0.75:
            call, configuration = self._add(number, name, dict(configuration))
        else:
            call, configuration = self._set(number, name, dict(configuration))
        self.current[name] = configuration
        return Save(number, name, call, configuration)

    def _topic(self, number, name, index):
        # The topic of the first item is short, so that the smallest file is within one sector.
        padding = "x" * (self.chance.randrange(LONGEST_PADDING) if index else 0)
        if name == ITEMS:
            return f"save{number}/item{index}/{padding}end"
        return f"norq:Save{number}/Item{index}/{padding}End//."

    def _replace(self, number, name):
        topics = [self._topic(number, name, index)
                  for index in range(self.chance.choice(COUNTS))]
        method = "SetMQTTToEventConfig" if name == ITEMS else "SetEventToMQTTConfig"
        configuration = {} if name == ITEMS else {"common": settings()}
        configuration |= {str(index): entry(name, topic) for index, topic in enumerate(topics)}
        return " ".join([method, *topics]), configuration

    def _add(self, number, name, configuration):
        free = next(index for index in range(MOST_ITEMS + 1) if str(index) not in configuration)
        if free == MOST_ITEMS:
            return self._set(number, name, configuration)
        topic = self._topic(number, name, free)
        configuration[str(free)] = entry(name, topic, qos=2)
        return request("add", name, data={"topicFilter": topic, "qos": "QOS_2"} |
                       ({} if name == ITEMS else {"retain": "none"})), configuration

    def _set(self, number, name, configuration):
        identifier = self.chance.choice([each for each in configuration if each != "common"])
        topic = self._topic(number, name, int(identifier))
        configuration[identifier] = renamed(name, configuration[identifier], topic)
        return request("set", name, identifier, data={"topicFilter": topic}), configuration


def entry(name, topic, qos=0):
    """An item, or a filter, as it stands in its file."""
    if name == ITEMS:
        return (topic, "0", str(qos), "0")
    return {"topicFilter": topic, "qos": str(qos), "retain": "none"}


def renamed(name, old, topic):
    """An entry that differs by its topic filter only."""
    return (topic, *old[1:]) if name == ITEMS else old | {"topicFilter": topic}


def settings():
    """The settings of a publication that nobody has changed."""
    return {"topicPrefixSetting": "default", "customTopicPrefix": "", "appendEventTopic": "true",
            "includeTopicNamespaces": "true", "includeSerialNumberInPayload": "false"}


def request(operation, name, *path, data):
    """A request to the configuration API."""
    collection = ["subscription"] if name == ITEMS else ["publication", "eventFilter"]
    return "HandleRequest " + json.dumps(
        {"api": "tovrel", "version": 2, "operation": operation, "path": [*collection, *path],
         "data": data}, separators=(",", ":"))


def make_lives(seed, lives, saves):
    """For each life of the service its saves, half of them of either file, in random order."""
    chance = random.Random(seed)
    result, number = [], 0
    for _ in range(lives):
        names = [name for name in FILES for _ in range(saves)]
        chance.shuffle(names)
        writer = Writer(chance)
        result.append([writer.next_save(number + index, name) for index, name in enumerate(names)])
        number += len(names)
    return result


def text_of_life(number, saves):
    """The life as the guest's client reads it."""
    lines = [f"mark life {number}"]
    for save in saves:
        lines.append(f"call {save.number} {save.call}")
    lines.insert(len(lines) // 2, f"rest {REST_SECONDS}")
    return "".join(f"{line}\n" for line in lines)
