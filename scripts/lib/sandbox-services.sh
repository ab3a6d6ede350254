# shellcheck shell=bash
# How each service of the sandbox is started, known to be ready, and ended. To be sourced, inside
# the sandbox, by sandbox-inside and by the command sandbox-service.
#
# Every service runs in a session of its own, so that Ctrl-C in the terminal reaches the sandbox's
# command alone. Its output is appended to $SANDBOX_LOG_DIR/NAME.log, its process id kept in
# $SANDBOX_DIR/NAME.pid.

# shellcheck disable=SC2034  # used by those who source this file
readonly SANDBOX_SERVICES=(bus broker eventd deviced)
readonly READY_SECONDS=20

pid_of() {
    cat "$SANDBOX_DIR/$1.pid" 2>/dev/null
}

is_running() {
    local pid
    pid=$(pid_of "$1") && [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null
}

is_gone() {
    ! is_running "$1"
}

# spawn NAME PROGRAM [ARG...]
#
# From a subshell, so that the service becomes an orphan: the sandbox's first process reaps it, while
# its starter, which turns into the sandbox's command, knows nothing of it and never would.
spawn() {
    local name=$1
    shift
    (
        setsid env NORQ_LOG_STDERR=1 "$@" </dev/null >>"$SANDBOX_LOG_DIR/$name.log" 2>&1 &
        printf '%s\n' $! >"$SANDBOX_DIR/$name.pid"
    )
}

# ready_or_gone NAME CHECK...: succeeds when CHECK holds, and also when the service has ended.
ready_or_gone() {
    local name=$1
    shift
    "$@" || is_gone "$name"
}

# await NAME CHECK...: waits until CHECK holds for the service just started; fails if it ends before.
await() {
    local name=$1
    shift
    wait_for "$READY_SECONDS" ready_or_gone "$name" "$@" && "$@" && is_running "$name"
}

bus_answers() {
    gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
        --method org.freedesktop.DBus.GetId >/dev/null 2>&1
}

start_bus() {
    rm -f /run/dbus/system_bus_socket
    spawn bus dbus-daemon --nofork --nopidfile --nosyslog --config-file="$SANDBOX_DIR/bus.conf"
    await bus bus_answers
}

name_is_owned() {
    gdbus wait --system --timeout 1 "$1" 2>/dev/null
}

start_eventd() {
    spawn eventd "$SANDBOX_EVENTD"
    await eventd name_is_owned com.norq.EventService1
}

device_names_are_owned() {
    name_is_owned com.norq.BasicDeviceInfo1 && name_is_owned com.norq.MQTTMessagingService1
}

start_deviced() {
    spawn deviced "$SANDBOX_DEVICED"
    await deviced device_names_are_owned
}

# The broker's own word counts: whoever else has the port would accept a connection just as well.
broker_listens() {
    # No pipe: with pipefail, what a broker under load logs behind that line would end it as a failure.
    grep -q 'mosquitto version .* running' \
        < <(tail -n "+$((broker_log_lines + 1))" "$SANDBOX_LOG_DIR/broker.log")
}

# Listens on $SANDBOX_MQTT_PORT; fails when that is taken. A broker that is started again keeps its
# port, and the memory that it wrote when it was stopped.
start_broker() {
    sed -i "s/^listener .*/listener $SANDBOX_MQTT_PORT $SANDBOX_MQTT_HOST/" \
        "$SANDBOX_DIR/mosquitto.conf"
    touch "$SANDBOX_LOG_DIR/broker.log"
    broker_log_lines=$(wc -l <"$SANDBOX_LOG_DIR/broker.log")
    # An ordinary user's PATH has no sbin.
    spawn broker env PATH="$PATH:/usr/sbin" mosquitto -c "$SANDBOX_DIR/mosquitto.conf"
    await broker broker_listens
}

stop_service() {
    local name=$1 signal=$2 pid
    pid=$(pid_of "$name") || return 1
    kill "-$signal" "$pid" && wait_for "$READY_SECONDS" is_gone "$name"
}
