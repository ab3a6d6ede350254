"""What happens when: drawn from a seed, the same for the same seed on every machine."""

import random
from dataclasses import dataclass

from configuration import draw_change

# Often enough that an hour sees more than a hundred changes and dozens of outages of each kind.
KINDS = (("change", 46), ("broker restart", 14), ("event service restart", 14),
         ("change while the broker is away", 5),
         ("event service restart while the broker is away", 4),
         ("SIGKILL", 7), ("SIGKILL during a change", 6), ("SIGKILL while the broker is away", 2),
         ("SIGKILL while the event service is away", 2))
PAUSE_SECONDS = (3, 15)
# At 45 events a second a long outage of the broker overflows the service's queue, others don't.
BROKER_AWAY_SECONDS = (0, 6)
BROKER_LONG_AWAY_SECONDS = (28, 34)
LONG_OUTAGES = 0.15
EVENT_SERVICE_AWAY_SECONDS = (0, 3)
KILL_DELAY_SECONDS = (0, 0.03)


@dataclass(frozen=True)
class Plan:
    """One episode, and how long all is left alone before it."""

    pause: float
    kind: str
    steps: list  # of a change
    broker_ends_by: str  # "stop" or "kill"
    broker_away: float
    event_service_ends_by: str
    event_service_away: float
    kill_delay: float

    @property
    def kills_service(self):
        return self.kind.startswith("SIGKILL")


def plans(seed):
    """Plans without end. Each draws all that any kind may need, so that none depends on another."""
    rng = random.Random(seed)
    kinds, weights = zip(*KINDS)
    while True:
        kind = rng.choices(kinds, weights)[0]
        is_long = rng.random() < LONG_OUTAGES and kind == "broker restart"
        yield Plan(pause=rng.uniform(*PAUSE_SECONDS), kind=kind, steps=draw_change(rng),
                   broker_ends_by=rng.choice(("stop", "kill")),
                   broker_away=rng.uniform(*(BROKER_LONG_AWAY_SECONDS if is_long
                                             else BROKER_AWAY_SECONDS)),
                   event_service_ends_by=rng.choice(("stop", "kill")),
                   event_service_away=rng.uniform(*EVENT_SERVICE_AWAY_SECONDS),
                   kill_delay=rng.uniform(*KILL_DELAY_SECONDS))
