"""How the bridge is configured for the lanes, and the changes that leave their traffic as it is."""

import random
import subprocess
from dataclasses import dataclass

from bridge import configure, item
from causes import Cause
from ledger import EVENTS, MESSAGES, Lane
from publishing import PUBLICATION, event_filter, key_file, settings
from waiting import DEADLINE_SECONDS

# The last of the filters in every order, so that all others are subscribed when this one is.
MARK_TOPIC = "soak/zone"
MARK_EVENT = "tnsnorq:SoakZone"
ITEMS = (("soak/q0", 0, False), ("soak/q1/+", 1, False), ("soak/q2", 2, False),
         ("soak/state", 1, True), (MARK_TOPIC, 1, False))
FILTERS = (("norq:Soak/norq:Q0", 0), ("norq:Soak/norq:Q1", 1), ("norq:Soak/norq:Q2", 2),
           ("norq:SoakZone", 1))


def new_lanes():
    """A lane for each event topic "Q0", ..., and for each message topic "soak/q0", ..."""
    lanes = [Lane(f"Q{qos}", EVENTS, qos) for qos in range(3)]
    return lanes + [Lane(topic.replace("+", "x"), MESSAGES, qos) for topic, qos, _ in ITEMS
                    if topic != MARK_TOPIC]


def write_files():
    configure(*(item(number, topic, qos=qos, stateful=stateful)
                for number, (topic, qos, stateful) in enumerate(ITEMS)))
    filters = {number: event_filter(topic, qos=qos) for number, (topic, qos) in enumerate(FILTERS)}
    PUBLICATION.write_text(key_file(settings(), filters), encoding="utf-8")


BOTH = (Cause.EVENTS_CHANGED, Cause.MESSAGES_CHANGED)


# changes over the bus, as steps with one new subscription of each changed direction each

@dataclass(frozen=True)
class Step:
    """One call that changes something, and which directions are subscribed anew for it."""

    name: str
    causes: tuple
    call: object  # a function of a ConfigurationClient
    request: tuple | None = None  # the same for ConfigurationClient.send(): operation, path, data


def subscription_document():
    return [{"id": str(number), "topicFilter": topic, "qos": f"QOS_{qos}",
             "isStateData": stateful, "useDeviceTopicPrefix": False}
            for number, (topic, qos, stateful) in enumerate(ITEMS)]


def publication_document(prefix, with_serial):
    return {"topicPrefix": prefix, "customTopicPrefix": "site/7", "appendEventTopic": True,
            "includeTopicNamespaces": True, "includeSerialNumberInPayload": with_serial,
            "eventFilter": [{"id": str(number), "topicFilter": topic, "qos": f"QOS_{qos}",
                             "retain": "none"} for number, (topic, qos) in enumerate(FILTERS)]}


def call_method(method, signature, *arguments):
    """Calls a method that replaces a whole direction; its status must be good."""
    done = subprocess.run(
        ["busctl", "--system", "call", "com.norq.Tovrel1", "/com/norq/Tovrel1", "com.norq.Tovrel1",
         method, signature, *map(str, arguments)],
        check=True, stdout=subprocess.PIPE, text=True, timeout=2 * DEADLINE_SECONDS)
    assert done.stdout == "i 0\n", done.stdout


def set_items(_client):
    words = [word for topic, qos, stateful in ITEMS
             for word in (topic, "false", qos, str(stateful).lower())]
    call_method("SetMQTTToEventConfig", "a(sbib)", len(ITEMS), *words)


def set_filters(_client):
    words = [word for topic, qos in FILTERS for word in (topic, "none", qos)]
    call_method("SetEventToMQTTConfig", "ssbbba(ssi)", "default", "", "true", "true", "false",
                len(FILTERS), *words)


def setting(name, data):
    return Step(name, (Cause.EVENTS_CHANGED,),
                lambda client: client.done("set", "publication", data=data),
                ("set", "publication", data))


def of_settings(rng):
    """A change of what is published."""
    return [rng.choice((
        setting("serial number", {"includeSerialNumberInPayload": rng.random() < 0.5}),
        setting("topic namespaces", {"includeTopicNamespaces": rng.random() < 0.5}),
        setting("topic prefix", {"topicPrefix": rng.choice(("default", "none")),
                                 "customTopicPrefix": ""}),
        setting("custom topic prefix", {"topicPrefix": "custom",
                                        "customTopicPrefix": f"site/{rng.randrange(100)}"})))]


def of_filters(_rng):
    """A filter comes and goes."""
    added = {"publication": {"eventFilter": [{"id": "200", "topicFilter": "onvif:Extra"}]}}
    return [Step("filter imported", BOTH,
                 lambda client: client.done("import", data=added)),
            Step("filter removed", (Cause.EVENTS_CHANGED,),
                 lambda client: client.done("remove", "publication", "eventFilter", "200"))]


def of_items(_rng):
    """An item comes and goes."""
    added = {"subscription": [{"id": "200", "topicFilter": "soak/extra"}]}
    return [Step("item imported", BOTH,
                 lambda client: client.done("import", data=added)),
            Step("item removed", (Cause.MESSAGES_CHANGED,),
                 lambda client: client.done("remove", "subscription", "200"))]


def of_everything(rng):
    """Both directions are replaced by a document."""
    wanted = {"subscription": subscription_document(),
              "publication": publication_document(rng.choice(("default", "custom", "none")),
                                                  rng.random() < 0.5)}
    return [Step("everything imported", BOTH,
                 lambda client: client.done("import", data=wanted,
                                            options={"importType": "replace"}))]


def of_all_items(_rng):
    return [Step("items replaced", (Cause.MESSAGES_CHANGED,), set_items)]


def of_all_filters(_rng):
    return [Step("filters replaced", (Cause.EVENTS_CHANGED,), set_filters)]


def draw_change(rng: random.Random):
    """The steps of a change."""
    return rng.choice((of_settings, of_settings, of_filters, of_items, of_items, of_everything,
                       of_all_items, of_all_filters))(rng)
