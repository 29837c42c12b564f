// A host, a client and one with a code at the relay, on npm's ws: node remote_relay_clients.mjs
// FOLDER URL. Ends with 1 and says why when the relay does something else than it promises.
import { createRequire } from 'node:module';
import { randomBytes } from 'node:crypto';
import assert from 'node:assert/strict';

const [folder, url] = process.argv.slice(2);
const WebSocket = createRequire(folder + '/')('ws');
const pairID = randomBytes(16).toString('base64url');
const link = 'vantrell://pair?host=h&port=1&key=k';
const limit = setTimeout(() => { console.error('the relay went silent'); process.exit(1); }, 60000);

class Peer {
  constructor(hello) {
    this.received = [];
    this.socket = new WebSocket(url, { maxPayload: 1 << 25, skipUTF8Validation: false });
    this.socket.on('open', () => this.socket.send(JSON.stringify(hello)));
    this.socket.on('message', (data, isBinary) => this.put(isBinary ? data : JSON.parse(data)));
    this.socket.on('close', (code) => this.put({ closed: code }));
    this.socket.on('error', (error) => this.put({ error: error.message }));
    this.socket.on('pong', () => { this.pongs = (this.pongs ?? 0) + 1; });
  }
  put(what) {
    this.received.push(what);
    this.waiting?.();
  }
  async next() {
    while (!this.received.length) await new Promise((go) => { this.waiting = go; });
    return this.received.shift();
  }
}
const as = (role, more) => new Peer({ version: 1, role, pairID, ...more });

const early = as('client');
assert.deepEqual(await early.next(), { type: 'ready', hostOnline: false });
const host = as('host', { pairingLink: link });
assert.equal((await host.next()).type, 'ready');
assert.deepEqual(await early.next(), { type: 'host_online' });
let code;
for (let i = 0; i < 2; i++) {
  const told = await host.next();
  if (told.type === 'pairing_code') code = told.code;
  else assert.deepEqual(told, { type: 'peer_count', count: 1 });
}
assert.match(code, /^[2-9A-HJKMNP-Z]{8}$/);

// A code gives its link once.
const first = new Peer({ version: 1, role: 'resolve', code });
assert.deepEqual(await first.next(), { type: 'pairing_link', link });
assert.deepEqual(await first.next(), { closed: 1000 });
const second = new Peer({ version: 1, role: 'resolve', code });
assert.equal((await second.next()).type, 'error');
assert.deepEqual(await second.next(), { closed: 1008 });
assert.notEqual((await host.next()).code, code);

// What is binary passes as it is, in fragments too, up to 16 MiB; the host's goes to every client.
const late = as('client');
assert.deepEqual(await late.next(), { type: 'ready', hostOnline: true });
assert.deepEqual(await host.next(), { type: 'peer_count', count: 2 });
const full = randomBytes(1 << 24);
host.socket.send(full);
for (const client of [early, late]) assert.ok(full.equals(await client.next()));
for (let at = 0; at < full.length; at += 1 << 20) {
  late.socket.send(full.subarray(at, at + (1 << 20)), { fin: at + (1 << 20) >= full.length });
}
assert.ok(full.equals(await host.next()));
host.socket.ping();
while (!host.pongs) await new Promise((go) => setTimeout(go, 10));

// One byte more ends the connection; the other end hears of it.
late.socket.send(Buffer.alloc((1 << 24) + 1));
let end = await late.next();
while (!('closed' in end)) end = await late.next();
assert.ok([1006, 1009].includes(end.closed), `closed with ${end.closed}`);
assert.deepEqual(await host.next(), { type: 'peer_count', count: 1 });
host.socket.close(1000);
assert.deepEqual(await early.next(), { type: 'host_offline' });

// What is no greeting is refused.
for (const hello of [{}, { version: 1, role: 'king', pairID }, { version: 1, role: 'host' }]) {
  const refused = new Peer(hello);
  assert.equal((await refused.next()).type, 'error');
  assert.deepEqual(await refused.next(), { closed: 1008 });
}
clearTimeout(limit);
process.exit(0);
