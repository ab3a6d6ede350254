"""What is promised about the delivery of events as messages, line by line of docs/delivery.md."""

from bridge import call_service, configure, control, item, log_of
from publishing import HeldEvent, event_filter, send_event, wait_for_connection, wait_for_event
from relay import PUBACK, PUBCOMP, PUBLISH_QOS_0, PUBREC, PUBREL, SETTINGS

ALARM = "tns1:Device/tnsnorq:Alarm"
DOOR = "tns1:Device/tnsnorq:Door"
QOS_2_UNDER_WAY = 10  # at most, by the MQTT client
OVERFLOW = "Too many queued events, dropping the oldest one"


def alarm_filter(qos=1):
    return event_filter("onvif:Device/norq:Alarm//.", qos=qos)


def send_numbers(numbers):
    """Sends an alarm for each number, all by one producer."""
    producer = HeldEvent("--topic", ALARM, "number:int")
    producer.send(*(f"number={number}" for number in numbers))
    producer.close()


def numbers_of(messages, qos=1):
    return [message.document["Data"]["number"] for message in messages if message.qos == qos]


def cut_off(relay):
    """The service has lost its connection, and events that are sent from now on have to wait."""
    relay.cut()
    wait_for_connection(False)


def test_e1_an_event_is_published_once_for_each_filter_that_it_matches(published):
    published.start(alarm_filter(qos=0), event_filter("onvif:Device/norq:Alarm", qos=1),
                    event_filter("onvif:Device/norq:Door", qos=2))
    send_event("--topic", ALARM)
    assert sorted(message.qos for message in published.all_so_far()) == [0, 1]
    send_event("--topic", DOOR)
    assert [message.qos for message in published.all_so_far()] == [2]


def test_e2_events_of_a_producer_are_published_in_their_order_for_each_filter(published):
    published.start(*(alarm_filter(qos) for qos in range(3)))
    send_numbers(range(300))
    messages = published.all_so_far()
    for qos in range(3):
        assert numbers_of(messages, qos) == list(range(300))


def test_e3_events_wait_while_disconnected(published, relay):
    published.start(*(alarm_filter(qos) for qos in range(3)))
    cut_off(relay)
    send_numbers(range(100))
    relay.open()
    messages = published.all_so_far()
    for qos in range(3):
        assert numbers_of(messages, qos) == list(range(100))


def test_e4_the_oldest_of_more_than_1024_waiting_events_are_dropped(published, relay):
    published.start(alarm_filter())
    for run in (1, 2):
        cut_off(relay)
        send_numbers(range(1100))
        relay.open()
        arrived = [published.watcher.next() for _ in range(1024)]
        assert numbers_of(arrived) == list(range(1100 - 1024, 1100))
        assert published.all_so_far() == []
        assert log_of("tovrel").count(OVERFLOW) == run


def test_e7_a_refused_message_is_dropped_and_not_tried_again(published):
    published.start(alarm_filter())
    for zone in ("a", "#", "b"):
        send_event("--topic", ALARM, "--tag", "zone=onvif-source", f"zone={zone}")
    zones = [message.document["Source"]["zone"] for message in published.all_so_far()]
    assert zones == ["a", "b"]
    said = [line for line in log_of("tovrel").splitlines() if "when publishing" in line]
    assert said == ["tovrel: info: Got response code 4 when publishing MQTT message: "
                    "The topic contains a wildcard"]


def assert_only_the_door_is_told(published, is_open):
    messages = published.all_so_far()
    assert messages
    assert {message.document["Topic"] for message in messages} == {"onvif:Device/norq:Door"}
    assert {message.document["Data"]["open"] for message in messages} == {is_open}


def test_e8_of_what_happens_while_the_service_is_away_the_last_values_are_published(published):
    published.start(alarm_filter(), event_filter("onvif:Device/norq:Door"))
    door = HeldEvent("--topic", DOOR, "--property", "open", "open:bool=true")
    assert_only_the_door_is_told(published, True)
    control("stop", "tovrel")
    send_event("--topic", ALARM)
    door.send("open=false")
    wait_for_event("--topic", DOOR, "--match", "open=0")
    call_service()
    published.wait_until_subscribed()
    assert_only_the_door_is_told(published, False)
    door.close()


def test_e8_of_what_happens_while_the_event_service_is_away_the_last_values_are_published(
        published):
    published.start(alarm_filter(), event_filter("onvif:Device/norq:Door"))
    door = HeldEvent("--topic", DOOR, "--property", "open", "open:bool=true")
    assert_only_the_door_is_told(published, True)
    control("kill", "eventd")
    send_event("--topic", ALARM, "--timeout", "1", fails=True)
    control("start", "eventd")
    published.wait_until_subscribed()
    assert_only_the_door_is_told(published, True)
    door.close()


def test_e9_an_internal_event_is_never_published(published):
    published.start(alarm_filter())
    send_event("--topic", ALARM, "--internal", "number:int=1")
    send_event("--topic", ALARM, "number:int=2")
    assert numbers_of(published.all_so_far()) == [2]


def test_e11_levels_without_namespace_behind_a_gap_or_the_hundredth_are_left_out(published):
    published.start(event_filter("onvif:Device/norq:Alarm//."), event_filter("onvif:Gap"),
                    event_filter("onvif:l0//."), namespaces=False)
    send_event("--topic", f"{ALARM}/:Without/tnsnorq:With")
    send_event("topic0@tns1=Gap", "topic2@tns1=Behind")
    send_event(*(f"topic{level}@tns1=l{level}" for level in range(101)))
    topics = [message.topic.partition("/event/")[2] for message in published.all_so_far()]
    assert topics == ["Device/Alarm/With", "Gap",
                      "/".join(f"l{level}" for level in range(100))]


def published_across_a_break(published, relay, qos, lost, count):
    """The numbers out of 50 that arrive when packets get lost before the connection breaks."""
    relay.lose(lost)
    send_numbers(range(50))
    relay.wait_for_lost(count)
    cut_off(relay)
    relay.open()
    return numbers_of(published.all_so_far(), qos)


def test_e12_qos_0_is_not_published_again_after_a_break(published, relay):
    published.start(alarm_filter(0))
    assert published_across_a_break(published, relay, 0, PUBLISH_QOS_0, 50) == []


def test_e12_qos_1_is_published_at_least_once_across_a_break(published, relay):
    published.start(alarm_filter(1))
    numbers = published_across_a_break(published, relay, 1, PUBACK, 50)
    assert list(dict.fromkeys(numbers)) == list(range(50))


def test_e12_qos_2_is_published_exactly_once_across_a_break_of_a_persistent_session(published,
                                                                                    relay):
    with SETTINGS.open("a", encoding="utf-8") as broker:
        broker.write("clean-session=false\n")
    published.start(alarm_filter(2))
    for lost in (PUBREC, PUBREL, PUBCOMP):
        numbers = published_across_a_break(published, relay, 2, lost, QOS_2_UNDER_WAY)
        assert numbers == list(range(50)), lost


def test_e12_qos_2_is_published_at_most_once_across_a_break_of_a_clean_session(published, relay):
    published.start(alarm_filter(2))
    for lost in (PUBREC, PUBREL, PUBCOMP):
        numbers = published_across_a_break(published, relay, 2, lost, QOS_2_UNDER_WAY)
        assert numbers == sorted(set(numbers)), lost
        assert set(numbers) >= set(range(QOS_2_UNDER_WAY, 50)), lost


def test_e12_qos_1_is_published_at_least_once_also_where_messages_of_qos_2_are_received(published,
                                                                                        relay):
    configure(item(0, "a/b", qos=2))
    published.start(alarm_filter(1))
    for _ in range(2):
        numbers = published_across_a_break(published, relay, 1, PUBACK, 50)
        assert list(dict.fromkeys(numbers)) == list(range(50))


def test_e12_qos_2_is_published_at_most_once_also_where_messages_of_qos_2_are_received(published,
                                                                                       relay):
    configure(item(0, "a/b", qos=2))
    published.start(alarm_filter(2))
    for lost in (PUBREC, PUBREL, PUBCOMP):
        numbers = published_across_a_break(published, relay, 2, lost, QOS_2_UNDER_WAY)
        assert numbers == sorted(set(numbers)), lost
        assert set(numbers) >= set(range(QOS_2_UNDER_WAY, 50)), lost


def test_e14_what_waits_is_lost_with_a_crash(published, relay):
    published.start(alarm_filter())
    cut_off(relay)
    send_numbers(range(10))
    control("kill", "tovrel")
    relay.open()
    call_service()
    published.wait_until_subscribed()
    assert published.all_so_far() == []
