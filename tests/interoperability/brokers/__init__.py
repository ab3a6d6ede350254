"""The brokers, by the names by which the command line calls them."""

from brokers.aedes import Aedes
from brokers.mosquitto import Mosquitto
from brokers.rabbitmq import RabbitMq

BROKERS = {broker.name: broker for broker in (Mosquitto, RabbitMq, Aedes)}
