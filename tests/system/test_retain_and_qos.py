"""What retain policy and QoS of an event filter mean to stock subscribers."""

from publishing import event_filter, send_event

STATELESS = ("--topic", "tns1:Device/tnsnorq:Alarm", "number:int=1")
PROPERTY = ("--topic", "tns1:Device/tnsnorq:Door", "--property", "open", "open:bool=true")


def told_late(published, policy):
    """Sends a stateless and a property event; what a later subscriber is told of them."""
    published.start(event_filter("onvif:Device/norq:Alarm", retain=policy),
                    event_filter("onvif:Device/norq:Door", retain=policy), namespaces=False)
    send_event(*STATELESS)
    send_event(*PROPERTY)
    assert len(published.all_so_far()) == 2
    late = published.seen_by_late_subscriber()
    assert all(message.retain for message in late), late
    return [message.topic.rpartition("/")[2] for message in late]


def test_e13_with_retain_none_a_late_subscriber_is_told_nothing(published):
    assert told_late(published, "none") == []


def test_e13_with_retain_property_a_late_subscriber_is_told_the_property(published):
    assert told_late(published, "property") == ["Door"]


def test_e13_with_retain_all_a_late_subscriber_is_told_everything(published):
    assert sorted(told_late(published, "all")) == ["Alarm", "Door"]


def test_an_unknown_retain_policy_means_property(published):
    assert told_late(published, "sometimes") == ["Door"]


def test_e13_a_late_subscriber_is_told_the_last_value_of_each_topic(published):
    published.start(event_filter("onvif:Device/norq:Alarm", retain="all"), namespaces=False)
    for zone, number in (("a", 1), ("b", 2), ("a", 3)):
        send_event("--topic", "tns1:Device/tnsnorq:Alarm", "--tag", "zone=onvif-source",
                   f"zone={zone}", f"number:int={number}")
    published.all_so_far()
    late = {message.document["Source"]["zone"]: message.document["Data"]["number"]
            for message in published.seen_by_late_subscriber()}
    assert late == {"a": 3, "b": 2}


def test_a_message_has_the_qos_of_its_filter(published):
    published.start(*(event_filter(f"onvif:Device/norq:Qos{qos}", qos=qos) for qos in range(3)))
    for qos in range(3):
        send_event("--topic", f"tns1:Device/tnsnorq:Qos{qos}")
    assert {message.topic[-4:]: message.qos for message in published.all_so_far()} == {
        "Qos0": 0, "Qos1": 1, "Qos2": 2}


def test_a_retained_message_has_the_qos_of_its_filter_too(published):
    published.start(*(event_filter(f"onvif:Device/norq:Qos{qos}", qos=qos, retain="all")
                      for qos in range(3)))
    for qos in range(3):
        send_event("--topic", f"tns1:Device/tnsnorq:Qos{qos}")
    published.all_so_far()
    assert {message.topic[-4:]: message.qos for message in published.seen_by_late_subscriber()} == {
        "Qos0": 0, "Qos1": 1, "Qos2": 2}


def test_each_of_256_filters_publishes_its_events_as_it_says(published):
    policies = ("none", "property", "all")
    published.start(*(event_filter(f"onvif:Device/norq:Level{number}", qos=number % 3,
                                   retain=policies[number // 3 % 3]) for number in range(256)))
    for number in range(256):
        send_event("--topic", f"tns1:Device/tnsnorq:Level{number}", f"number:int={number}")
    messages = published.all_so_far()
    assert len(messages) == 256
    for message in messages:
        number = message.document["Data"]["number"]
        assert message.topic.endswith(f"/Level{number}")
        assert (message.qos, message.retain) == (number % 3, number // 3 % 3 == 2), message
