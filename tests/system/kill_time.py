"""When to kill the service so that it meets a save, and where a kill fell."""

import enum
import random

SEED = 20261121


class Moment(enum.Enum):
    """Where a kill fell, by what it left behind."""
    BEFORE = "before the save"
    INTO = "into the save"
    AFTER = "after the save"


class KillTime:
    """
    When to kill, counted from the start: at random near the moment of the save, which is learnt
    from where the kills so far have fallen, so that it is found on a machine of any speed.
    """

    def __init__(self, seconds_until_saved, width=0.1):
        """The width is a part of the time until the save: how far a kill may be off to each side."""
        self.random = random.Random(SEED)
        self.centre = seconds_until_saved
        self.width = seconds_until_saved * width

    def next(self):
        return max(0.0, self.centre + self.random.uniform(-self.width, self.width))

    def learn(self, moment):
        if moment is Moment.BEFORE:
            self.centre += self.width / 8
        elif moment is Moment.AFTER:
            self.centre -= self.width / 8
