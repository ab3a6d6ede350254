"""RabbitMQ with its MQTT plug-in, as Debian packages both."""

import os
import re

from brokers.process import HOST, PASSWORD, USER, Broker, free_port


class RabbitMq(Broker):
    """
    A node of its own: name, folders and ports are this run's. Its port mapper is started with it
    and ends with the sandbox.
    """

    name = "rabbitmq"
    highest_qos = 1
    makes_levels_of_dots = True
    retained_reach_wildcards = False
    ready_text = "Server startup complete"
    # Half a minute of a busy processor.
    start_seconds = 120

    def __init__(self, certificates):
        super().__init__(certificates)
        self.mapper_port = free_port()
        self.node_port = free_port()

    def environment(self):
        return {
            **os.environ,
            "HOME": str(self.folder),  # of the secret that nodes share
            "RABBITMQ_NODENAME": "interoperability@localhost",
            "RABBITMQ_CONF_ENV_FILE": "/dev/null",
            "RABBITMQ_CONFIG_FILE": str(self.folder / "rabbitmq.conf"),
            "RABBITMQ_ENABLED_PLUGINS_FILE": str(self.folder / "enabled_plugins"),
            "RABBITMQ_MNESIA_BASE": str(self.folder / "data"),
            "RABBITMQ_LOG_BASE": str(self.folder / "log"),
            "RABBITMQ_DIST_PORT": str(self.node_port),
            "ERL_EPMD_ADDRESS": HOST,
            "ERL_EPMD_PORT": str(self.mapper_port),
            # One scheduler that does not spin: the machine has more to do.
            "RABBITMQ_SERVER_ADDITIONAL_ERL_ARGS":
                "+S 1:1 +sbwt none -kernel inet_dist_use_interface {127,0,0,1}",
        }

    def command(self):
        (self.folder / "enabled_plugins").write_text("[rabbitmq_mqtt].\n", encoding="utf-8")
        (self.folder / "rabbitmq.conf").write_text(f"""\
listeners.tcp = none
mqtt.listeners.tcp.1 = {HOST}:{self.port}
mqtt.listeners.ssl.1 = {HOST}:{self.tls_port}
mqtt.allow_anonymous = true
mqtt.default_user = {USER}
mqtt.default_pass = {PASSWORD}
default_user = {USER}
default_pass = {PASSWORD}
ssl_options.cacertfile = {self.certificates.trusted.root.certificate}
ssl_options.certfile = {self.certificates.broker.certificate}
ssl_options.keyfile = {self.certificates.broker.key}
ssl_options.verify = verify_peer
ssl_options.fail_if_no_peer_cert = {str(self.demands_certificate).lower()}
log.console = true
log.file = false
""", encoding="utf-8")
        # The script in the PATH changes to a user that the sandbox does not have.
        return ["/usr/lib/rabbitmq/bin/rabbitmq-server"]

    def version(self):
        found = re.search(r"Starting RabbitMQ (\S+) on Erlang (\S+)", self.log_text())
        return f"RabbitMQ {found[1]} on Erlang {found[2]}"
