"""What the cases do with the service in the guest, as its operator would."""

import json
import re

from waiting import wait_until

UNIT = "tovrel.service"
RESUME = "tovrel-resume.service"
UNITS = (UNIT, RESUME, "tovrel-folder.service", "norq-eventd.service",
         "norq-deviced.service")
BY_THE_SERVICE = "--identifier=tovrel"
ITEMS = "/etc/tovrel/subscriptions_v2.conf"
PUBLICATION = "/etc/tovrel/event_to_mqtt_v2.conf"
OBJECT = ("com.norq.Tovrel1", "/com/norq/Tovrel1")
# Five seconds, and time for a busy machine.
END_SECONDS = 30


class Service:
    """The service of a guest."""

    def __init__(self, guest):
        self.guest = guest

    # the unit

    def show(self, name, unit=UNIT):
        return self.guest.run("systemctl", "show", "--value", "--property", name, unit).strip()

    def state(self):
        return self.show("ActiveState")

    def main_pid(self):
        """Of the running service; 0 when there is none."""
        return int(self.show("MainPID"))

    def wait_for_state(self, state):
        wait_until(lambda: self.state() == state, f"{UNIT} is {state}", END_SECONDS)

    def wait_for_other_process(self, than):
        """The process that has come in the place of one that has gone."""
        return wait_until(lambda: self.main_pid() not in (0, than) and self.main_pid(),
                          "another process of the service", END_SECONDS)

    def wait_for_resume(self, runs_before):
        """Waits until what runs after each end with success has been, and is through."""
        wait_until(lambda: self.resume_runs() > runs_before
                   and self.show("ActiveState", RESUME) == "inactive",
                   f"{RESUME} was run", END_SECONDS)

    def resume_runs(self):
        return self.log(f"--unit={RESUME}").count(f"Finished {RESUME}")

    def starts(self):
        """How often it was started since the guest is up."""
        return self.said().count("tovrel starting")

    def signal_process(self, name, process):
        self.guest.shell(f"kill -{name} {process}")

    def stop(self):
        self.guest.run("systemctl", "stop", UNIT)

    def start(self):
        self.guest.run("systemctl", "start", UNIT)

    def log(self, *options):
        """Lines of the journal, oldest first."""
        self.guest.run("journalctl", "--sync")
        return self.guest.run("journalctl", "--quiet", "--no-pager", "--boot", "--output=cat", *options)

    def said(self, *options):
        """
        What the service itself has logged. The journal may not learn any more which unit a process
        belonged to that ends with its line; of whom the line is, the line says.
        """
        return self.log(BY_THE_SERVICE, *options)

    def entries(self, *options):
        """The same as dictionaries of their fields."""
        self.guest.run("journalctl", "--sync")
        text = self.guest.run("journalctl", "--quiet", "--no-pager", "--boot", "--output=json",
                              BY_THE_SERVICE, *options)
        return [json.loads(line) for line in text.splitlines()]

    # the configuration

    def call(self, interface, method, *arguments):
        """What busctl prints of a reply."""
        return self.guest.run("busctl", "--system", "call", *OBJECT, interface, method,
                              *arguments).strip()

    def set_items(self, *filters):
        """Makes these all of the MQTT-to-event items: stateless, QoS 1."""
        items = [word for topic_filter in filters for word in (topic_filter, "false", "1", "false")]
        assert self.call("com.norq.Tovrel1", "SetMQTTToEventConfig", "a(sbib)", str(len(filters)),
                         *items) == "i 0"

    def items(self):
        """The topic filters of the items, from the service."""
        return re.findall(r'"(.*?)"', self.call("com.norq.Tovrel1", "GetMQTTToEventConfig"))

    def set_event_filters(self, *filters):
        """Makes these all of the event filters, with topics that begin with "event"; QoS 1."""
        words = [word for topic_filter in filters for word in (topic_filter, "none", "1")]
        assert self.call("com.norq.Tovrel1", "SetEventToMQTTConfig", "ssbbba(ssi)", "default", "",
                         "true", "false", "false", str(len(filters)), *words) == "i 0"

    def is_at_rest(self):
        """
        Whether it does not run and nothing will start it. systemd asks for what runs after its end
        in the moment of the end, so that is through, or is among the jobs.
        """
        return (self.state() == "inactive" and not self.is_resume_due()
                and self.state() == "inactive")

    def is_resume_due(self):
        """Whether what runs after each end is to be run, or is not through."""
        return self.guest.run("systemctl", "list-jobs", "--no-legend", RESUME) != ""

    def forget_everything(self):
        """Nothing configured, nothing saved, not running."""

        def is_put_to_rest():
            self.stop()
            return self.is_at_rest()

        wait_until(is_put_to_rest, f"{UNIT} is at rest", END_SECONDS)
        self.guest.run("rm", "-f", ITEMS, PUBLICATION)
