"""Neighbours of the service are restarted during a stream of events, and the stream goes on."""

import re

import pytest
from bridge import call_service, control, exit_statuses, log_of, service_pid
from publishing import configure_publication, event_filter
from stream import FILTER, RATE, Arrivals, Stream, gaps
from waiting import DEADLINE_SECONDS

# Longest distance of two attempts to reach the broker.
BACK_OFF_SECONDS = 30
IN_FLIGHT = 200
OVERFLOW = "Too many queued events, dropping the oldest one"


@pytest.fixture(name="stream")
def streaming():
    stream = Stream()
    yield stream
    stream.close()


@pytest.fixture(autouse=True)
def service_survives():
    yield
    assert exit_statuses() == []
    assert service_pid() is not None


def publish_stream(stream, qos):
    configure_publication(event_filter(FILTER, qos=qos))
    call_service()
    stream.run()
    arrivals = Arrivals()
    arrivals.wait_for(RATE)
    return arrivals


def restart_event_service(stream, how):
    """Several times, each as soon as events flow again."""
    arrivals = publish_stream(stream, qos=1)
    for _ in range(5):
        control(how, "eventd")
        control("start", "eventd")
        # The producer may be back before the service.
        arrivals.wait_for(stream.sent + 1)
        arrivals.wait_for(arrivals.last() + RATE)
    last = stream.pause()
    arrivals.wait_for(last)
    numbers = arrivals.first_times()
    print("missing:", gaps(numbers), "again:", arrivals.times_again())
    assert arrivals.times_again() == 0
    assert numbers[-RATE:] == list(range(last - RATE + 1, last + 1))


def test_a_stopped_event_service_that_comes_back_gets_the_filters_again(stream):
    restart_event_service(stream, "stop")


def test_a_killed_event_service_that_comes_back_gets_the_filters_again(stream):
    restart_event_service(stream, "kill")


def times_connected():
    return len(re.findall(r"New client connected from \S+ as \S+-tovrel ", log_of("broker")))


def restart_broker(how):
    control(how, "broker")
    control("start", "broker")


def test_a_broker_that_is_restarted_again_and_again_costs_no_event_but_by_overflow(stream):
    arrivals = publish_stream(stream, qos=1)
    # Found again each time, and then faster than the service looks for it.
    for number in range(4):
        restart_broker("kill" if number % 2 else "stop")
        arrivals.wait_for(stream.sent, BACK_OFF_SECONDS + DEADLINE_SECONDS)
    for number in range(16):
        restart_broker("kill" if number % 2 else "stop")
    arrivals.wait_for(stream.sent + RATE, BACK_OFF_SECONDS + DEADLINE_SECONDS)
    last = stream.pause()
    arrivals.wait_for(last)
    numbers = arrivals.first_times()
    missing = gaps(numbers)
    print("missing:", missing, "again:", arrivals.times_again(), "connected:", times_connected())
    assert numbers[-1] == last
    # No deactivation has discarded the queue: each run of missing events is one of dropped ones.
    assert len(missing) == log_of("tovrel").count(OVERFLOW)
    assert times_connected() >= 6
    assert arrivals.times_again() <= IN_FLIGHT * times_connected()
