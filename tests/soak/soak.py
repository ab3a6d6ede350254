"""
A soak of the bridge inside the sandbox, by scripts/soak: traffic both ways while the configuration
changes and neighbours and service go away and come back, and an account of all of it at the end.
docs/soak.md tells what is judged, and how.
"""

import argparse
import shutil
import sys
import time
from pathlib import Path

TESTS = Path(__file__).parents[1]
sys.path += [str(TESTS / "support"), str(TESTS / "system")]

from bridge import LOGS
from report import Report
from schedule import plans
from trial import Trial

# Of a run in its last part the service is not killed, so that one incarnation grows old.
OLD_AGE_SHARE = 1 / 3
WARM_UP_SECONDS = 60
KEPT_LOGS = ("tovrel.log", "eventd.log", "deviced.log", "bus.log", "broker.log")


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/soak")
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--episodes", type=int, help="end earlier, after so many")
    parser.add_argument("--seed", type=int, default=time.time_ns() % 1_000_000)
    parser.add_argument("--rate", type=float, default=15, help="a second, of each of the 7 lanes")
    parser.add_argument("--results", type=Path, required=True, help="folder for report and logs")
    return parser.parse_args()


def make_changes(trial, plan):
    for step in plan.steps:
        with trial.episode(f"{plan.kind}: {step.name}") as episode:
            trial.change(episode, step)


def restart_broker(trial, plan):
    with trial.episode(f"{plan.kind} ({plan.broker_ends_by}, {plan.broker_away:.0f} s)") as episode:
        with trial.broker_away(episode, plan):
            pass


def restart_event_service(trial, plan):
    with trial.episode(f"{plan.kind} ({plan.event_service_ends_by})") as episode:
        with trial.event_service_away(episode, plan):
            pass


def change_without_broker(trial, plan):
    step = plan.steps[0]
    with trial.episode(f"{plan.kind}: {step.name}") as episode:
        with trial.broker_away(episode, plan):
            trial.change(episode, step)


def restart_event_service_without_broker(trial, plan):
    with trial.episode(plan.kind) as episode:
        with trial.broker_away(episode, plan), trial.event_service_away(episode, plan):
            pass


def kill(trial, plan):
    with trial.episode(plan.kind) as episode:
        trial.kill_service(episode)
        trial.start_service(episode)


def kill_during_change(trial, plan):
    step = next((step for step in plan.steps if step.request), None)
    with trial.episode(f"{plan.kind}{': ' + step.name if step else ''}") as episode:
        if step:
            trial.kill_during(episode, step, plan.kill_delay)
        else:
            trial.kill_service(episode)
        trial.start_service(episode)


def kill_without_broker(trial, plan):
    with trial.episode(plan.kind) as episode:
        with trial.broker_away(episode, plan):
            trial.kill_service(episode)
            trial.start_service(episode)


def kill_without_event_service(trial, plan):
    with trial.episode(plan.kind) as episode:
        with trial.event_service_away(episode, plan):
            trial.kill_service(episode)
        trial.start_service(episode)


RUN = {"change": make_changes,
       "broker restart": restart_broker,
       "event service restart": restart_event_service,
       "change while the broker is away": change_without_broker,
       "event service restart while the broker is away": restart_event_service_without_broker,
       "SIGKILL": kill,
       "SIGKILL during a change": kill_during_change,
       "SIGKILL while the broker is away": kill_without_broker,
       "SIGKILL while the event service is away": kill_without_event_service}


def become_warm(trial, warm_up):
    """Leaves the service alone until it was seen warm."""
    while not trial.incarnations[-1].warm(warm_up):
        trial.leave_alone(max(0, warm_up - trial.incarnations[-1].age()))


def run_schedule(trial, options, warm_up):
    begin = time.monotonic()
    end = begin + options.minutes * 60
    last_kill = end - options.minutes * 60 * OLD_AGE_SHARE
    for number, plan in enumerate(plans(options.seed)):
        trial.leave_alone(plan.pause)
        now = time.monotonic()
        if now >= end or number == options.episodes:
            break
        if plan.kills_service:
            if now >= last_kill:
                continue
            become_warm(trial, warm_up)
        RUN[plan.kind](trial, plan)
        print(f"{time.monotonic() - begin:6.0f} s  {trial.episodes[-1].name}", flush=True)
    become_warm(trial, warm_up)


def main():
    options = arguments()
    warm_up = min(WARM_UP_SECONDS, options.minutes * 60 / 5)
    heading = (f"soak of {options.minutes:g} minutes, seed {options.seed}, {options.rate:g} a "
               "second in each lane")
    print(heading, flush=True)
    options.results.mkdir(parents=True, exist_ok=True)
    trial = Trial(options.rate)
    try:
        with trial.episode("start") as episode:
            trial.start_service(episode)
        trial.traffic.start()
        run_schedule(trial, options, warm_up)
        trial.finish()
        trial.close()
    except AssertionError as failure:
        trial.abandon(failure)
    finally:
        for name in KEPT_LOGS:
            shutil.copy(LOGS / name, options.results)
    report = Report(trial, warm_up, heading)
    (options.results / "report.txt").write_text(report.text() + "\n", encoding="utf-8")
    print(report.text())
    return 1 if report.found else 0


if __name__ == "__main__":
    sys.exit(main())
