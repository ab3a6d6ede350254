"""The judge of a soak can fail: each kind of thing that must not be is told."""

import itertools
import sys
from pathlib import Path

sys.path += [str(Path(__file__).parents[1] / folder) for folder in ("support", "system")]

import pytest
from arrivals import Broker
from causes import QOS_2_UNDER_WAY, Cause, Episode
from expected_log import NOT_SENT, OVERFLOW, judge_log
from ledger import EVENTS, MESSAGES, Lane
from report import judge_excuses, judge_losses, judge_refusals
from resources import (DESCRIPTOR_TOLERANCE, RSS_TOLERANCE, Incarnation, Sample, descriptors_of,
                       judge_resources, rss_of)
from schedule import KINDS, plans

WARM_UP = 60


# messages and events

def lane_with(sent, *lost, direction=EVENTS, qos=1):
    lane = Lane("Q", direction, qos)
    lane.sent = sent
    for number in range(1, sent + 1):
        if number not in lost:
            lane.arrive(number)
    return lane


def episode_of(lane, *causes, behind, last):
    """Behind a number something happens, and from another one on all flows again."""
    episode = Episode("something", [lane])
    episode.behind = {lane: behind}
    for cause in causes:
        episode.happens(cause)
    episode.settled({lane: last})
    return episode


def judged(lane, *episodes):
    losses, found = judge_losses([lane], episodes)
    return dict(losses[lane]), found


def test_nothing_is_wrong_when_all_arrives():
    assert judged(lane_with(100)) == ({}, [])


def test_a_number_lost_without_cause_is_told():
    assert judged(lane_with(100, 50)) == ({}, ["Q: number 50 got lost, and no line allows it"])


def test_a_lane_that_is_excused_most_of_the_time_is_told():
    lane = lane_with(100)
    assert judge_excuses([lane], [episode_of(lane, Cause.KILL, behind=10, last=60)]) == []
    assert judge_excuses([lane], [episode_of(lane, Cause.KILL, behind=10, last=70)]) == [
        "Q: only 40% had to arrive whatever happened"]


def test_neighbours_lost_without_cause_are_told_as_one():
    assert judged(lane_with(100, 50, 51, 52, 54))[1] == [
        "Q: numbers 50 to 52 got lost, and no line allows it",
        "Q: number 54 got lost, and no line allows it"]


def test_the_last_number_lost_without_cause_is_told():
    assert judged(lane_with(100, 100))[1] == ["Q: number 100 got lost, and no line allows it"]


@pytest.mark.parametrize("lost", (40, 61))
def test_a_number_lost_beside_an_episode_is_told(lost):
    lane = lane_with(100, lost)
    assert len(judged(lane, episode_of(lane, Cause.EVENTS_CHANGED, behind=40, last=60))[1]) == 1


@pytest.mark.parametrize("cause, direction, qos, line", [
    (Cause.EVENTS_CHANGED, EVENTS, 1, "E6"), (Cause.OVERFLOW, EVENTS, 1, "E4"),
    (Cause.EVENT_SERVICE, EVENTS, 2, "E8"), (Cause.EVENT_SERVICE, MESSAGES, 2, "M9"),
    (Cause.MESSAGES_CHANGED, MESSAGES, 1, "M7"), (Cause.BROKER, MESSAGES, 1, "M11"),
    (Cause.BROKER, EVENTS, 0, "E12"), (Cause.BROKER, EVENTS, 2, "E12")])
def test_what_a_cause_may_cost_is_accounted_to_its_line(cause, direction, qos, line):
    lane = lane_with(100, 41, 60, direction=direction, qos=qos)
    assert judged(lane, episode_of(lane, cause, behind=40, last=60)) == ({line: 2}, [])


@pytest.mark.parametrize("cause, direction, qos", [
    (Cause.EVENTS_CHANGED, MESSAGES, 1), (Cause.MESSAGES_CHANGED, EVENTS, 1),
    (Cause.BROKER, EVENTS, 1), (Cause.START, EVENTS, 1), (Cause.START, MESSAGES, 1)])
def test_what_a_cause_may_not_cost_is_told(cause, direction, qos):
    lane = lane_with(100, 50, direction=direction, qos=qos)
    assert len(judged(lane, episode_of(lane, cause, behind=40, last=60))[1]) == 1


def test_a_kill_costs_what_was_under_way_by_one_line_and_what_is_sent_meanwhile_by_another():
    lane = lane_with(60, *range(41, 50))
    episode = Episode("kill", [lane])
    episode.behind = {lane: 40}
    lane.sent = 45
    episode.happens(Cause.KILL)
    lane.sent = 60
    episode.settled({lane: 49})
    assert judged(lane, episode) == ({"E14": 5, "E8": 4}, [])


def test_more_of_qos_2_than_may_be_under_way_is_told():
    lost = range(41, 41 + QOS_2_UNDER_WAY + 1)
    lane = lane_with(100, *lost, qos=2)
    assert judged(lane, episode_of(lane, Cause.BROKER, behind=40, last=60)) == (
        {"E12": QOS_2_UNDER_WAY}, [f"Q: number {lost[-1]} got lost, and no line allows it"])


def test_a_number_that_comes_twice_is_told():
    lane = lane_with(100)
    lane.arrive(50)
    assert judged(lane)[1] == ["Q: number 50 came twice"]


@pytest.mark.parametrize("direction, qos, findings", [(EVENTS, 1, 0), (EVENTS, 2, 1),
                                                      (EVENTS, 0, 1), (MESSAGES, 1, 1)])
def test_only_events_of_qos_1_may_come_again_after_a_break(direction, qos, findings):
    lane = lane_with(100, direction=direction, qos=qos)
    lane.arrive(39)
    found = judged(lane, episode_of(lane, Cause.BROKER, behind=40, last=60))[1]
    assert len(found) == findings


def test_a_number_out_of_order_is_told():
    lane = lane_with(100, 50)
    lane.arrive(50)
    assert judged(lane)[1] == ["Q: number 50 came behind 100"]


def test_a_number_that_was_never_sent_is_told():
    lane = lane_with(100)
    lane.arrive(101)
    assert judged(lane)[1] == ["Q: number 101 came and was never sent"]


def test_events_that_could_not_be_sent_must_be_among_what_is_lost():
    lane = lane_with(100, 50, 51, direction=MESSAGES)
    losses, _ = judge_losses([lane], [episode_of(lane, Cause.EVENT_SERVICE, behind=40, last=60)])
    assert judge_refusals(losses, {f"tovrel: {NOT_SENT}": 2}) == []
    assert len(judge_refusals(losses, {f"tovrel: {NOT_SENT}": 3})) == 1


# the broker's log

CONNECTED = "1: New client connected from 127.0.0.1:1 as norq-1-tovrel (p2, c1, k60)."
RELEASED = "1: Received PUBREL from norq-1-tovrel (Mid: 7)"


def received(topic, qos=2):
    return (f"1: Received PUBLISH from norq-1-tovrel (d0, q{qos}, r0, m7, '{topic}', ... "
            "(93 bytes))")


NUMBER_1 = received("norq/1/event/tns:norq/Soak/Q2/$source/number/1")


def broker_with(*lines):
    lane = Lane("Q2", EVENTS, 2)
    broker = Broker([lane])
    for line in lines:
        broker.take(line)
    return lane, broker


def test_a_message_of_qos_2_has_arrived_only_when_it_is_released():
    assert broker_with(NUMBER_1)[0].arrived == []
    assert broker_with(NUMBER_1, RELEASED)[0].arrived == [1]
    assert broker_with(NUMBER_1, CONNECTED, RELEASED)[0].arrived == []


@pytest.mark.parametrize("topic", ("site/7/tns:norq/Soak/Q2/$source/number/1",
                                   "Soak/Q2/$source/number/1"))
def test_numbers_are_read_whatever_the_prefix_is(topic):
    assert broker_with(received(topic), RELEASED)[0].arrived == [1]


def test_a_message_that_nobody_sent_is_told():
    with pytest.raises(AssertionError):
        broker_with(received("other"))


def test_a_message_of_another_qos_than_its_filter_has_is_told():
    with pytest.raises(AssertionError):
        broker_with(received("Soak/Q2/$source/number/1", qos=1))


def test_a_mark_belongs_to_its_connection():
    mark = received("event/SoakZone", qos=1)
    assert broker_with(CONNECTED, mark, CONNECTED, mark)[1].marks_published == [1, 2]


# the log

def lines_judged(causes, *lines, log="tovrel"):
    episode = Episode("something", [])
    for cause in causes:
        episode.happens(cause)
    episode.lines = [(log, line) for line in lines]
    return judge_log([episode])


DISCONNECTED = "tovrel: warning: MQTT: disconnected from 127.0.0.1:1: the connection was closed"


def test_a_line_that_nobody_expects_is_told():
    found = lines_judged(list(Cause), "tovrel: warning: something new")[1]
    assert found == ["tovrel logs in or after 'something': tovrel: warning: something new"]


def test_an_expected_line_with_something_behind_it_is_told():
    assert lines_judged([Cause.START], "tovrel: info: tovrel starting again")[1]


def test_a_line_of_another_service_is_told():
    assert lines_judged([Cause.BROKER], DISCONNECTED, log="eventd")[1]


def test_an_expected_line_is_counted():
    counts, found = lines_judged([Cause.BROKER], DISCONNECTED)
    assert (dict(counts), found) == ({"tovrel: MQTT: disconnected": 1}, [])


def test_an_expected_line_without_its_cause_is_told():
    assert lines_judged([Cause.EVENTS_CHANGED], DISCONNECTED)[1]


def test_an_expected_line_once_too_often_is_told():
    assert lines_judged([Cause.BROKER], DISCONNECTED, DISCONNECTED)[1]
    assert not lines_judged([Cause.BROKER, Cause.BROKER], DISCONNECTED, DISCONNECTED)[1]


def test_dropped_events_without_overflow_are_told():
    assert lines_judged([Cause.BROKER], f"tovrel: info: {OVERFLOW}")[1]


# memory and descriptors

def sample(age, rss=10_000_000, **descriptors):
    return Sample(age, rss, descriptors or {"socket:": 5})


def aged(*samples):
    return Incarnation(pid=1, started=0.0, samples=list(samples))


def resources_judged(*incarnations):
    return judge_resources(incarnations, WARM_UP)


def test_nothing_is_wrong_with_what_stays_within_its_tolerance():
    assert resources_judged(aged(sample(70), sample(900, rss=10_000_000 + RSS_TOLERANCE))) == []


def test_grown_memory_is_told():
    found = resources_judged(aged(sample(70), sample(900, rss=10_000_001 + RSS_TOLERANCE)))
    assert len(found) == 1 and "the memory has grown" in found[0]


def test_a_leaked_descriptor_is_told_with_its_kind():
    grown = sample(900, **{"socket:": 5, "pipe:": DESCRIPTOR_TOLERANCE + 1})
    found = resources_judged(aged(sample(70), grown))
    assert len(found) == 1 and "'pipe:': 1" in found[0]


def test_what_a_later_incarnation_has_more_than_the_first_is_told():
    later = [sample(70, **{"socket:": 6}), sample(900, **{"socket:": 6})]
    assert len(resources_judged(aged(sample(70), sample(900)), aged(*later))) == 1


def test_what_was_held_before_the_service_was_warm_does_not_count():
    assert resources_judged(aged(sample(5, rss=1), sample(70), sample(900))) == []


def test_an_incarnation_that_was_never_warm_between_others_is_passed_over():
    warm = aged(sample(70), sample(900))
    assert resources_judged(warm, aged(sample(5, rss=10**9)), warm) == []


def test_nothing_to_compare_is_told():
    warm = aged(sample(70), sample(900))
    assert len(resources_judged(warm, aged(sample(70)))) == 1
    assert len(resources_judged(aged(sample(5)), warm)) == 1


def test_a_descriptor_is_seen_as_soon_as_it_is_open(tmp_path):
    before = descriptors_of("self")
    with open(tmp_path / "opened", "w", encoding="ascii"):
        assert sum(descriptors_of("self").values()) == sum(before.values()) + 1
    assert rss_of("self") > 1_000_000


# the schedule

def test_a_seed_decides_the_schedule():
    def kinds(seed):
        return [(plan.kind, plan.pause, plan.broker_away, [step.name for step in plan.steps])
                for plan in itertools.islice(plans(seed), 50)]
    assert kinds(1) == kinds(1)
    assert kinds(1) != kinds(2)


def test_every_kind_comes_up():
    drawn = {plan.kind for plan in itertools.islice(plans(1), 300)}
    assert drawn == {kind for kind, _ in KINDS}
