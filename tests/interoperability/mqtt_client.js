// A client made of mqtt.js that does what lines of standard input say and tells in lines of standard
// output what happens; both are JSON.
//
// usage: node mqtt_client.js PORT PROTOCOL_VERSION
//
//   {"do": "publish", "topic": T, "payloads": [P, ...], "qos": N, "retain": B}   -> {"done": 0}
//   {"do": "subscribe", "topic": T, "qos": N}                                    -> {"done": granted}
//   {"do": "unsubscribe", "topic": T}                                            -> {"done": 0}
//   a message that arrives   -> {"topic": T, "payload": P, "qos": N, "retain": B}
//
// Nothing is answered before the broker has confirmed it.
'use strict';

const mqtt = require('mqtt');
const readline = require('readline');

// By default mosquitto drops what goes beyond 20 unconfirmed messages of QoS 2, and the connection.
const AT_A_TIME = 20;

const [port, version] = process.argv.slice(2).map(Number);
const tell = (what) => process.stdout.write(`${JSON.stringify(what)}\n`);

const actions = {
    async publish(client, { topic, payloads, qos, retain }) {
        for (let sent = 0; sent < payloads.length; sent += AT_A_TIME) {
            await Promise.all(payloads.slice(sent, sent + AT_A_TIME).map(
                (payload) => client.publishAsync(topic, payload, { qos, retain })));
        }
        return 0;
    },
    async subscribe(client, { topic, qos }) {
        const [grant] = await client.subscribeAsync(topic, { qos });
        return grant.qos;
    },
    async unsubscribe(client, { topic }) {
        await client.unsubscribeAsync(topic);
        return 0;
    },
};

async function main() {
    const client = await mqtt.connectAsync(`mqtt://127.0.0.1:${port}`, { protocolVersion: version }, false);
    client.on('message', (topic, payload, packet) =>
        tell({ topic, payload: payload.toString(), qos: packet.qos, retain: packet.retain }));
    tell({ done: 0 });
    for await (const line of readline.createInterface({ input: process.stdin })) {
        const order = JSON.parse(line);
        tell({ done: await actions[order.do](client, order) });
    }
    await client.endAsync();
}

main().catch((error) => {
    console.error(error);
    process.exit(1);
});
