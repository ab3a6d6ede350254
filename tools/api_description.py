"""The description of an API, read from its JSON file and checked."""

import json


class Property:
    """A property of a node. `values` are the only texts allowed, None for any."""

    def __init__(self, source):
        self.name = source["name"]
        self.type = source["type"]
        self.values = source.get("values")
        self.read_only = source.get("readOnly", False)
        self.required_to_add = source.get("requiredToAdd", False)
        if self.type not in ("string", "boolean"):
            raise ValueError("%s has the unknown type %s" % (self.name, self.type))


class Node:
    """A node with its names: `c_name` in code ("publication_eventFilter"), `text` in messages
    ("root.publication.eventFilter[]")."""

    def __init__(self, source, parent=None):
        self.name = source["name"]
        self.is_collection = source["kind"] == "collection"
        self.operations = source["operations"]
        self.parent = parent
        suffix = "[]" if self.is_collection else ""
        if parent is None:
            self.c_name = self.text = self.name
        else:
            self.c_name = self.name if parent.parent is None else parent.c_name + "_" + self.name
            self.text = parent.text + "." + self.name + suffix
        if parent is not None and parent.is_collection:
            raise ValueError("%s: nodes below a collection are not supported" % self.text)
        self.properties = [Property(entry) for entry in source["properties"]]
        self.children = [Node(entry, self) for entry in source.get("children", [])]

    def walk(self):
        """This node and all below it, parents first."""
        yield self
        for child in self.children:
            yield from child.walk()

    @property
    def key(self):
        return self.properties[0] if self.is_collection else None

    @property
    def writable(self):
        """The properties that set and add take."""
        return [entry for entry in self.properties
                if entry is not self.key and not entry.read_only]

    @property
    def importable(self):
        """The properties that an import takes."""
        return [entry for entry in self.properties if not entry.read_only]


class Api:
    """An API: name, major version and tree of nodes."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            source = json.load(file)
        self.name = source["name"]
        self.version = source["majorVersion"]
        self.prefix = "%s_v%d" % (self.name, self.version)
        self.root = Node(source["root"])
        self.nodes = list(self.root.walk())
