"""Device events sent by another process arrive at a stock subscriber as messages."""

from publishing import event_filter, send_event


def test_an_event_that_a_filter_selects_is_published_once(published):
    published.start(event_filter("onvif:Device/norq:Beta", qos=1))
    send_event("--topic", "tns1:Device/tnsnorq:Beta")
    (message,) = published.all_so_far()
    assert message.topic.endswith("/event/tns:onvif/Device/tns:norq/Beta")
    assert message.document["Topic"] == "onvif:Device/norq:Beta"
