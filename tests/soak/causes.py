"""What may happen to the bridge, and what docs/delivery.md lets each of it cost."""

import enum
from dataclasses import dataclass

from ledger import EVENTS, MESSAGES, Window

EVERY_QOS = (0, 1, 2)
QOS_2_UNDER_WAY = 10  # at most, by the MQTT client


class Cause(enum.Enum):
    START = "start of the service"
    KILL = "SIGKILL of the service"
    BROKER = "broker away"
    OVERFLOW = "more waits than there is room for"
    EVENT_SERVICE = "event service away"
    EVENTS_CHANGED = "publication changed"
    MESSAGES_CHANGED = "subscriptions changed"


@dataclass(frozen=True)
class Licence:
    """
    What a cause may cost one direction: the line for what was sent before, and for what was sent
    afterwards, until all was well again; at most so many numbers, if there is a limit.
    """

    direction: str
    line_before: str
    line_after: str
    every_qos: tuple = EVERY_QOS
    most: int | None = None


LICENCES = {
    Cause.START: (),
    Cause.KILL: (Licence(EVENTS, "E14", "E8"), Licence(MESSAGES, "M12", "M11")),
    # Of QoS 1 no event may be lost.
    Cause.BROKER: (Licence(EVENTS, "E12", "E12", (0,)),
                   Licence(EVENTS, "E12", "E12", (2,), QOS_2_UNDER_WAY),
                   Licence(MESSAGES, "M11", "M11")),
    Cause.OVERFLOW: (Licence(EVENTS, "E4", "E4"),),
    Cause.EVENT_SERVICE: (Licence(EVENTS, "E8", "E8"), Licence(MESSAGES, "M9", "M9")),
    Cause.EVENTS_CHANGED: (Licence(EVENTS, "E6", "E6"),),
    Cause.MESSAGES_CHANGED: (Licence(MESSAGES, "M7", "M7"),),
}


class Episode:
    """
    From just before something happens until all flows again: what happened, and the lines that the
    services logged since.
    """

    def __init__(self, name, lanes):
        self.name = name
        self.lanes = lanes
        self.behind = {lane: lane.highest for lane in lanes}
        self.causes = []  # (cause, how many each lane had sent)
        self.lines = []  # (log, line)
        self.windows = []

    def happens(self, cause):
        """To be called when it has happened: what is sent from now on is sent afterwards."""
        self.causes.append((cause, {lane: lane.sent for lane in self.lanes}))

    def settled(self, last):
        """Ends the episode; of each lane nothing behind the number in last may be lost."""
        self.windows = [window for cause, sent in self.causes for licence in LICENCES[cause]
                        for lane in self.lanes if lane.direction == licence.direction
                        and lane.qos in licence.every_qos
                        for window in self._windows(licence, lane, sent[lane], last[lane])]
        if Cause.BROKER in dict(self.causes):
            self._let_come_again(last)

    def _windows(self, licence, lane, sent, last):
        behind = self.behind[lane]
        if licence.line_before == licence.line_after:
            return [Window(lane, licence.line_before, behind, last, licence.most)]
        border = min(sent, last)
        return [Window(lane, licence.line_before, behind, border),
                Window(lane, licence.line_after, border, last)]

    def _let_come_again(self, last):
        """E12: at least once."""
        self.windows += [Window(lane, "E12", self.behind[lane], last[lane], most=0, repeats=True)
                         for lane in self.lanes if lane.direction == EVENTS and lane.qos == 1]
