"""The sandbox itself: what it hands on, what it keeps apart, and that it leaves nothing behind."""

import os
import pty
import shutil
import signal
import socket
import subprocess
import uuid
from pathlib import Path

import pytest
from waiting import wait_until

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["TOVREL_BUILD_DIR"])
NOBODY = 65534
NOT_UP = 125

PING = (
    "gdbus call --system --dest com.norq.Tovrel1 --object-path /com/norq/Tovrel1"
    " --method org.freedesktop.DBus.Peer.Ping"
)


@pytest.fixture(name="mark")
def unique_mark():
    """A text in the environment of a sandbox by which its processes are found."""
    return "SANDBOX_TEST_MARK=" + uuid.uuid4().hex


def sandbox_command(*arguments, build=BUILD):
    return [str(ROOT / "scripts/sandbox"), "--build", str(build), *arguments]


def run(*arguments, mark=None, build=BUILD, **options):
    """Runs the sandbox to its end, its output captured."""
    return subprocess.run(
        sandbox_command(*arguments, build=build),
        env=environment(mark),
        timeout=60,
        text=True,
        check=False,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        **({"stdin": subprocess.DEVNULL} | options),
    )


def environment(mark):
    return os.environ | (dict([mark.split("=")]) if mark else {})


def start(*arguments, mark):
    """Starts a sandbox whose command says "up" on its first line, and waits for that."""
    process = subprocess.Popen(
        sandbox_command(*arguments),
        env=environment(mark),
        text=True,
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
    )
    assert process.stdout.readline() == "up\n"
    assert processes_with(mark)
    return process


def processes_with(mark):
    found = []
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        try:
            variables = (entry / "environ").read_bytes().split(b"\0")
        except OSError:
            continue
        if mark.encode() in variables:
            found.append(int(entry.name))
    return found


def assert_all_gone(mark):
    wait_until(lambda: not processes_with(mark), "the processes of the sandbox are gone")


def test_hands_on_the_exit_status_of_the_command():
    assert run("true").returncode == 0
    assert run("sh", "-c", "exit 7").returncode == 7


def test_tells_the_signal_that_ended_the_command():
    assert run("bash", "-c", "kill -TERM $$").returncode == 128 + signal.SIGTERM
    assert run("bash", "-c", "kill -KILL $$").returncode == 128 + signal.SIGKILL


def test_tells_a_missing_command():
    assert run("no-such-command").returncode == 127


def test_refuses_wrong_options_before_starting_anything(tmp_path):
    assert run("--nonsense", "true").returncode == NOT_UP
    assert run("--etc", str(tmp_path / "missing"), "true").returncode == NOT_UP
    assert run().returncode == NOT_UP


def test_passes_standard_input_through():
    result = run("cat", stdin=None, input="one\ntwo\n")
    assert result.stdout == "one\ntwo\n"


def test_passes_the_arguments_through_as_they_are():
    result = run("printf", "%s|", "a b", "", "$HOME", "*", "--no-service")
    assert result.stdout == "a b||$HOME|*|--no-service|"


def test_gives_the_command_the_terminal():
    pid, terminal = pty.fork()
    if pid == 0:
        os.execv(ROOT / "scripts/sandbox", sandbox_command("sh", "-c", "test -t 0 && test -t 1"))
    assert exit_status_of_terminal(pid, terminal) == 0


def test_keeps_the_settings_folders_to_itself():
    name = f"sandbox-test-{uuid.uuid4().hex}"
    result = run("sh", "-c", f"touch /etc/tovrel/{name} /etc/norq/{name} && ls /etc/tovrel")
    assert result.stdout == name + "\n"
    assert not Path("/etc/tovrel", name).exists()
    assert not Path("/etc/norq", name).exists()


def test_lets_the_command_decide_which_names_are_known():
    script = ("echo 'hosts: files' >/etc/nsswitch.conf"
              " && ! getent hosts broker.example"
              " && echo '127.0.0.7 broker.example' >>/etc/hosts"
              " && getent hosts broker.example && getent hosts localhost")
    before = Path("/etc/hosts").read_bytes()
    result = run("sh", "-c", script)
    assert result.returncode == 0, result.stderr
    assert result.stdout.splitlines()[0].split() == ["127.0.0.7", "broker.example"]
    assert Path("/etc/hosts").read_bytes() == before


def test_leaves_the_machine_read_only():
    name = f"sandbox-test-{uuid.uuid4().hex}"
    for folder in ("/usr", "/var", "/etc", "/"):
        run("touch", f"{folder}/{name}")
        assert not Path(folder, name).exists()
    assert run("touch", f"/usr/{name}").returncode != 0


def test_runs_several_side_by_side(mark):
    tell = (
        "echo up; gdbus call --system --dest org.freedesktop.DBus"
        " --object-path /org/freedesktop/DBus --method org.freedesktop.DBus.GetId;"
        "echo $SANDBOX_MQTT_PORT; read _"
    )
    sandboxes = [start("bash", "-c", tell, mark=mark) for _ in range(3)]
    told = [(s.stdout.readline(), s.stdout.readline()) for s in sandboxes]
    assert len({bus for bus, _ in told}) == 3
    assert len({port for _, port in told}) == 3
    for sandbox in sandboxes:
        sandbox.communicate("done\n", timeout=30)
        assert sandbox.returncode == 0
    assert_all_gone(mark)


def test_takes_another_port_when_the_one_asked_for_is_taken():
    with socket.socket() as holder:
        holder.bind(("127.0.0.1", 0))
        holder.listen()
        port = str(holder.getsockname()[1])
        result = subprocess.run(
            sandbox_command("sh", "-c", "mosquitto_pub -h $SANDBOX_MQTT_HOST -p $SANDBOX_MQTT_PORT"
                            " -t a -m b && echo $SANDBOX_MQTT_PORT"),
            env=os.environ | {"SANDBOX_MQTT_PORT": port},
            stdout=subprocess.PIPE, text=True, timeout=60, check=True)
    assert result.stdout.strip().isdigit()
    assert result.stdout.strip() != port


def test_leaves_no_process_behind_when_the_command_ends(mark):
    assert run("sh", "-c", f"{PING} && sleep 1000 & exit 3", mark=mark).returncode == 3
    assert_all_gone(mark)


def test_leaves_no_process_behind_when_the_command_crashes(mark):
    crash = "sleep 1000 & ulimit -c 0; kill -SEGV $$"
    assert run("bash", "-c", crash, mark=mark).returncode == 128 + signal.SIGSEGV
    assert_all_gone(mark)


def test_leaves_no_process_behind_when_the_script_is_killed(mark):
    sandbox = start("sh", "-c", "echo up; sleep 1000", mark=mark)
    sandbox.kill()
    sandbox.wait()
    assert_all_gone(mark)


def test_ends_with_the_script_when_that_is_asked_to_end(mark):
    sandbox = start("sh", "-c", "echo up; sleep 1000", mark=mark)
    sandbox.terminate()
    assert sandbox.wait(timeout=30) == 128 + signal.SIGTERM
    assert_all_gone(mark)


def read_until(terminal, text):
    seen = b""
    while text not in seen:
        seen += os.read(terminal, 1024)
    return seen


def exit_status_of_terminal(pid, terminal):
    try:
        while os.read(terminal, 1024):
            pass
    except OSError:
        pass  # the other end is closed
    _, status = os.waitpid(pid, 0)
    os.close(terminal)
    return os.waitstatus_to_exitcode(status)


def on_terminal(mark, script):
    """Starts a sandbox on a terminal of its own and waits until its command has said "up"."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.execve(ROOT / "scripts/sandbox", sandbox_command("bash", "-c", script), environment(mark))
    read_until(terminal, b"up")
    return pid, terminal


def test_ends_at_ctrl_c(mark):
    pid, terminal = on_terminal(mark, "echo up; exec sleep 1000")
    os.write(terminal, b"\x03")
    assert exit_status_of_terminal(pid, terminal) == 128 + signal.SIGINT
    assert_all_gone(mark)


def test_leaves_ctrl_c_to_the_command_with_its_services_unharmed(mark):
    handle = f"trap '{PING} && exit 9' INT; echo up; while :; do sleep 0.05; done"
    pid, terminal = on_terminal(mark, handle)
    os.write(terminal, b"\x03")
    assert exit_status_of_terminal(pid, terminal) == 9
    assert_all_gone(mark)


def test_leaves_no_file_behind():
    before = set(os.listdir("/tmp")), set(os.listdir("/run")), set(os.listdir("/etc"))
    result = run("sh", "-c", f"{PING}; mosquitto_pub -p $SANDBOX_MQTT_PORT -t a -m b; ls /run")
    assert "sandbox" in result.stdout
    new = [name for now, old in zip(map(os.listdir, ("/tmp", "/run", "/etc")), before)
           for name in set(now) - old]
    # Others use these folders, too; what is ours bears one of these names.
    assert not [name for name in new if any(n in name for n in ("tovrel", "norq", "sandbox", "bus"))]


def copy_for_everybody(target):
    """Scripts, templates and programs in a place where every user may read them."""
    for folder in ("scripts", "data"):
        shutil.copytree(ROOT / folder, target / folder)
    for rules in ROOT.glob("platform/*/com.*.conf*"):
        copy = target / rules.relative_to(ROOT)
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(rules, copy)
    for path in BUILD.rglob("*"):
        is_program = path.name in ("tovrel", "norq-eventd", "norq-deviced", "norq-event")
        if path.is_file() and (is_program or ".so." in path.name):
            copy = target / "build/copy" / path.relative_to(BUILD)
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, copy)
    libraries = {str(p.parent) for p in (target / "build").rglob("*.so.*")}
    for path in (target, *target.rglob("*")):
        path.chmod(path.stat().st_mode | (0o555 if path.is_dir() else 0o444))
    return ":".join(libraries)


def test_works_for_an_ordinary_user(mark):
    # pytest's own temporary folders are closed to other users.
    folder = Path(subprocess.run(["mktemp", "-d"], stdout=subprocess.PIPE, text=True,
                                 check=True).stdout.strip())
    try:
        libraries = copy_for_everybody(folder)
        as_user = []
        if os.getuid() == 0:
            as_user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
        script = f"sandbox-service status && {PING} && touch /etc/tovrel/x && id -u && exit 5"
        result = subprocess.run(
            [*as_user, str(folder / "scripts/sandbox"), "sh", "-c", script],
            env=environment(mark) | {"LD_LIBRARY_PATH": libraries}, cwd="/", timeout=60, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    finally:
        shutil.rmtree(folder)
    assert result.returncode == 5, result.stderr
    assert result.stdout.endswith("0\n")
    assert_all_gone(mark)


def test_activates_the_service_at_the_first_call_only():
    result = run("sh", "-c", f"sandbox-service status | grep tovrel; {PING} >/dev/null;"
                             "sandbox-service status | grep tovrel")
    before, after = result.stdout.splitlines()
    assert before == "tovrel: not running"
    assert after.startswith("tovrel: running")


def test_starts_the_service_at_once_with_a_given_configuration(tmp_path):
    (tmp_path / "subscriptions_v2.conf").write_text("0\na/b\n0\n0\n0\n")
    result = run("--etc", str(tmp_path), "sh", "-c",
                 "sandbox-service status | grep tovrel; cat /etc/tovrel/subscriptions_v2.conf")
    assert result.stdout.startswith("tovrel: running")
    assert result.stdout.endswith("0\na/b\n0\n0\n0\n")


def test_leaves_the_service_out_on_request():
    result = run("--no-service", "sh", "-c", PING)
    assert result.returncode != 0
    assert "ServiceUnknown" in result.stderr


def test_collects_the_logs_of_all_services():
    result = run("sh", "-c", f"{PING} && ls $SANDBOX_LOG_DIR && cat $SANDBOX_LOG_DIR/tovrel.log")
    for name in ("bus", "broker", "eventd", "deviced", "tovrel"):
        assert f"{name}.log\n" in result.stdout
    assert "tovrel starting" in result.stdout


def test_shows_the_logs_when_a_service_does_not_come_up(tmp_path):
    eventd = tmp_path / "platform/event/norq-eventd"
    eventd.parent.mkdir(parents=True)
    eventd.write_text("#!/bin/sh\necho this one is broken\nexit 1\n")
    eventd.chmod(0o755)
    result = run("true", build=tmp_path)
    assert result.returncode == NOT_UP
    assert "the event service did not start" in result.stderr
    assert "this one is broken" in result.stderr


def test_can_be_reached_from_outside_while_it_runs(mark):
    sandbox = start("sh", "-c", "echo up; touch /etc/tovrel/found; echo $SANDBOX_PID; read _",
                    mark=mark)
    inside = Path("/proc", sandbox.stdout.readline().strip(), "root")
    assert (inside / "etc/tovrel/found").exists()
    address = f"unix:path={inside}/run/dbus/system_bus_socket"
    subprocess.run(PING.split(), env=os.environ | {"DBUS_SYSTEM_BUS_ADDRESS": address}, timeout=30,
                   check=True)
    sandbox.communicate("done\n", timeout=30)
    assert_all_gone(mark)


def test_a_broker_that_logs_a_lot_as_soon_as_it_runs_is_ready(tmp_path):
    (tmp_path / "broker.log").write_text(
        "1: mosquitto version 2 running\n" + "1: Received PUBLISH\n" * 100_000, encoding="ascii")
    check = 'set -euo pipefail; . "$1"; broker_log_lines=0; broker_listens'
    subprocess.run(["bash", "-c", check, "bash", str(ROOT / "scripts/lib/sandbox-services.sh")],
                   env=os.environ | {"SANDBOX_LOG_DIR": str(tmp_path)}, check=True, timeout=60)
