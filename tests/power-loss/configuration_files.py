"""
The two files in which the service keeps its configuration, read without mercy: what is not exactly
a whole file is none.

Either configuration is a dictionary: of each item's, or group's, fields by its id.
"""

import re

ITEMS, PUBLICATION = "subscriptions_v2.conf", "event_to_mqtt_v2.conf"
FILES = (ITEMS, PUBLICATION)
FIELDS_OF_ITEM = 4
GROUP = re.compile(r"\[([^][]+)\]")
TEMPORARY_NAME = re.compile(rf"\.({'|'.join(map(re.escape, FILES))})\.norq-[0-9a-f]{{16}}")


class NotWhole(Exception):
    """The content is not that of a whole file."""


def parse(name, content):
    """The configuration in the content of one of the FILES."""
    try:
        text = content.decode("utf-8")
    except UnicodeDecodeError as error:
        raise NotWhole(str(error)) from error
    if not text.endswith("\n"):
        raise NotWhole("it does not end with a line")
    lines = text[:-1].split("\n")
    return parse_items(lines) if name == ITEMS else parse_groups(lines)


def parse_items(lines):
    """Five lines an item: the id and the fields."""
    if len(lines) % (1 + FIELDS_OF_ITEM):
        raise NotWhole("it ends within an item")
    items = {}
    for begin in range(0, len(lines), 1 + FIELDS_OF_ITEM):
        put(items, lines[begin], tuple(lines[begin + 1:begin + 1 + FIELDS_OF_ITEM]))
    return items


def parse_groups(lines):
    """A key file without comments."""
    groups, keys = {}, None
    for line in lines:
        if match := GROUP.fullmatch(line):
            keys = {}
            put(groups, match[1], keys)
        elif line:
            key, equals, value = line.partition("=")
            if keys is None or not equals:
                raise NotWhole(f"it has the line {line[:60]!r}")
            put(keys, key, value)
    return groups


def put(table, name, value):
    if name in table:
        raise NotWhole(f"it has {name[:60]!r} twice")
    table[name] = value
