"""What the cases of one run saw, as the page is made of it."""

import inspect


class Observations:
    """The results of all cases against one broker, and the versions of what took part."""

    def __init__(self, broker):
        self.broker = broker
        self.versions = {}
        self.cases = {}

    def version(self, name, text):
        self.versions[name] = text

    def take(self, item, report):
        """Takes a phase of a case; one that failed in any phase has failed."""
        case = self.cases.setdefault(item.nodeid, {
            "section": inspect.getdoc(item.module),
            "test": item.originalname,
            "title": inspect.getdoc(item.function).split("\n\n")[0].replace("\n", " "),
            "passed": True, "observed": [], "seconds": 0.0})
        case["passed"] = case["passed"] and report.passed
        case["seconds"] = round(case["seconds"] + report.duration, 2)
        if report.when == "call":
            case["observed"] = [text for name, text in item.user_properties if name == "observed"]

    def document(self):
        return {"broker": self.broker, "versions": self.versions,
                "cases": list(self.cases.values())}
