"""
Puts what the cases saw into the page, or looks whether the page still says so.

    page.py compare|update RESULTS PAGE

RESULTS is the folder with a JSON file for each broker. Products become newer without anything
having changed for the device, so their versions are written but not compared.
"""

import json
import re
import sys
from pathlib import Path

BROKERS = {"mosquitto": "mosquitto", "rabbitmq": "RabbitMQ", "aedes": "aedes"}
COMPARED, WRITTEN = "results", "versions"


def load(folder):
    """The documents of all brokers; ends the program when one is missing or has a failure."""
    documents = {}
    for name in BROKERS:
        path = folder / f"{name}.json"
        if not path.exists():
            sys.exit(f"there are no results of {name}")
        documents[name] = json.loads(path.read_text(encoding="utf-8"))
        failed = sorted({case["test"] for case in documents[name]["cases"] if not case["passed"]})
        if failed or not documents[name]["cases"]:
            sys.exit(f"{name}: failed: {', '.join(failed) or 'nothing was run'}")
    return documents


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def versions(documents):
    """Every product with its version."""
    told = {text for document in documents.values() for text in document["versions"].values()}
    return "".join(f"- {text}\n" for text in sorted(told, key=str.lower))


def cell(cases):
    """What the cases of one test saw, each thing once; "yes" when it is as the title says."""
    seen = dict.fromkeys(text for case in cases for text in case["observed"] or ["yes"])
    return "; ".join(seen).replace("|", "\\|")


def results(documents):
    """A table for each section, a row for each test."""
    rows = {}
    for name, document in documents.items():
        for case in document["cases"]:
            row = rows.setdefault((case["section"], case["title"], case["test"]),
                                  {broker: [] for broker in BROKERS})
            row[name].append(case)
    text = ""
    for section in dict.fromkeys(section for section, _, _ in rows):
        lines = [[title, *(cell(row[name]) for name in BROKERS), f"`{test}`"]
                 for (of, title, test), row in rows.items() if of == section]
        text += f"\n### {section}\n\n" + table(["what", *BROKERS.values(), "test"], lines)
    return text.lstrip("\n")


def block(name):
    return re.compile(rf"(?<=<!-- {name} -->\n).*?(?=<!-- end of {name} -->)", re.DOTALL)


def check_names(page, documents):
    """Ends the program when the page names a test that was not run."""
    run = {case["test"] for document in documents.values() for case in document["cases"]}
    unknown = set(re.findall(r"`(test_\w+)`", page)) - run
    if unknown:
        sys.exit(f"the page names tests that were not run: {', '.join(sorted(unknown))}")


def main(action, folder, path):
    documents = load(Path(folder))
    page = Path(path).read_text(encoding="utf-8")
    fresh = results(documents)
    if action == "update":
        page = block(COMPARED).sub(lambda _: f"\n{fresh}\n", page)
        page = block(WRITTEN).sub(lambda _: f"\n{versions(documents)}\n", page)
        Path(path).write_text(page, encoding="utf-8")
    elif (said := block(COMPARED).search(page)[0].strip()) != fresh.strip():
        old, new = set(said.splitlines()), set(fresh.strip().splitlines())
        sys.exit("\n".join([f"{path} says otherwise; scripts/interoperability --update writes anew",
                            *(f"- {line}" for line in sorted(old - new)),
                            *(f"+ {line}" for line in sorted(new - old))]))
    check_names(page, documents)


if __name__ == "__main__":
    main(*sys.argv[1:])
