"""Whether the configuration files are as they must be after a power cut."""

from dataclasses import dataclass, field

from configuration_files import FILES, TEMPORARY_NAME, NotWhole, parse

TORN, LOST, STALE, STRAY, BROKEN = "torn", "lost", "stale", "stray", "broken"


@dataclass(frozen=True)
class Violation:
    """What is wrong, by one of the words above and in detail."""

    kind: str
    detail: str


@dataclass
class Progress:
    """Where the guest was: its life, and of each file the last save begun and acknowledged."""

    lives: list
    life: int = None
    begun: dict = field(default_factory=dict)
    acknowledged: dict = field(default_factory=dict)
    saving: str = None

    def __post_init__(self):
        self.saves = {save.number: save for life in self.lives for save in life}

    def take(self, words):
        """Follows the guest by one of its marks."""
        what, number = words[0], int(words[1])
        if what == "life":
            self.life, self.begun, self.acknowledged, self.saving = number, {}, {}, None
            return
        name = self.saves[number].name
        if what == "begin":
            self.begun[name] = number
            # Until the next one begins: what is written after the answer belongs to it, too.
            self.saving = name
        elif what == "done" and self.begun[name] == number:
            self.acknowledged[name] = number
        else:
            raise ValueError(f"unexpected mark {words}")


@dataclass(frozen=True)
class Found:
    """What was found on a disk: by file the save that it stems from, or what it is instead."""

    saves: dict
    violations: tuple = ()


def look_at(saves, folder):
    """What there is in a folder, its contents by name, in which these saves were made."""
    of_files, violations = {}, []
    for name, content in folder.items():
        if name in FILES:
            try:
                of_files[name] = save_with(saves, name, parse(name, content))
            except NotWhole as error:
                violations.append(Violation(TORN, f"{name}, {len(content)} bytes: {error}"))
        # The next load removes what has such a name.
        elif not TEMPORARY_NAME.fullmatch(name):
            violations.append(Violation(STRAY, f"nobody will remove {name}"))
    return Found(of_files, tuple(violations))


def save_with(saves, name, configuration):
    """The number of the save that left this configuration in the file."""
    for save in saves:
        if save.name == name and save.configuration == configuration:
            return save.number
    raise NotWhole("it holds what was never configured")


def violations_at(progress, found):
    """All that is wrong with what was found, where the guest has come to at the cut."""
    wrong = list(found.violations)
    if any(violation.kind == BROKEN for violation in wrong):
        return wrong  # nothing can be said of the files
    torn = {violation.detail.partition(",")[0] for violation in wrong}
    for name in FILES:
        number, acknowledged = found.saves.get(name), progress.acknowledged.get(name)
        if number is None:
            if acknowledged is not None and name not in torn:
                wrong.append(Violation(LOST, f"{name}, save {acknowledged} was acknowledged"))
        elif number > progress.begun.get(name, -1):
            wrong.append(Violation(TORN, f"{name} holds save {number}, which had not begun"))
        elif acknowledged is not None and number < acknowledged:
            wrong.append(Violation(
                STALE, f"{name} holds save {number}, {acknowledged} was acknowledged"))
    return wrong
