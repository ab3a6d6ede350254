// A broker made of aedes as its own documentation shows it: a plain listener and one with TLS.
//
// usage: node aedes_broker.js SETTINGS      (JSON, see brokers/aedes.py)
'use strict';

const fs = require('fs');
const net = require('net');
const tls = require('tls');
const Aedes = require('aedes');

const HOST = '127.0.0.1';
const BAD_USER_OR_PASSWORD = 4;
const settings = JSON.parse(process.argv[2]);

const broker = new Aedes({
    // Whoever gives a user needs its password; others are let in.
    authenticate(client, user, password, done) {
        if (user === undefined || user === null ||
            (user === settings.user && String(password) === settings.password)) {
            done(null, true);
            return;
        }
        done(Object.assign(new Error('bad user or password'), { returnCode: BAD_USER_OR_PASSWORD }), null);
    },
});

for (const event of ['clientError', 'connectionError']) {
    broker.on(event, (client, error) => console.log(`${event} ${client && client.id}: ${error.message}`));
}

const secure = tls.createServer({
    ca: fs.readFileSync(settings.ca),
    cert: fs.readFileSync(settings.certificate),
    key: fs.readFileSync(settings.key),
    requestCert: settings.demandsCertificate,
    rejectUnauthorized: settings.demandsCertificate,
}, broker.handle);
secure.on('tlsClientError', (error) => console.log(`TLS: ${error.message}`));

process.on('SIGTERM', () => process.exit(0));
net.createServer(broker.handle).listen(settings.port, HOST, () => {
    secure.listen(settings.tlsPort, HOST, () => console.log('ready'));
});
