#!/usr/bin/env node
// End-to-end calls of the official TypeScript SDK client: one client calls `echo` in a loop
// for the given time and prints calls per second and the client's own CPU time per call.
//
//   node sdk-client-load.mjs NAME URL SECONDS

import { setMaxListeners } from 'node:events';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StreamableHTTPClientTransport } from '@modelcontextprotocol/sdk/client/streamableHttp.js';

const [name, url, secondsText] = process.argv.slice(2);
const seconds = Number(secondsText ?? 5);
if (!name || !url || !(seconds > 0)) {
  console.error('usage: node sdk-client-load.mjs NAME URL SECONDS');
  process.exit(2);
}

// The SDK's transport adds a listener to one abort signal per request and never removes it:
// over thousands of calls that is Node's leak warning, not a leak of the server's.
setMaxListeners(0);
const client = new Client({ name: 'kelvara-bench', version: '1.0.0' });
await client.connect(new StreamableHTTPClientTransport(new URL(url)));
const call = (i) => client.callTool({ name: 'echo', arguments: { text: `call ${i}` } });
for (let i = 0; i < 200; ++i) await call(i);  // warm-up

const cpuStart = process.cpuUsage();
const start = performance.now();
let calls = 0;
while (performance.now() - start < seconds * 1000) {
  const result = await call(calls);
  if (result.structuredContent?.text !== `call ${calls}`) throw new Error(`wrong answer: ${JSON.stringify(result)}`);
  ++calls;
}
const elapsed = (performance.now() - start) / 1000;
const cpu = process.cpuUsage(cpuStart);
console.log(`${name.padEnd(28)} ${String(Math.round(calls / elapsed)).padStart(8)} calls/s  ` +
  `${String(Math.round((cpu.user + cpu.system) / calls)).padStart(6)} us client CPU per call`);
await client.close();
