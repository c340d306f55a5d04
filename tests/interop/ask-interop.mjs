#!/usr/bin/env node
// A script tool that asks its client, with the official MCP TypeScript SDK client against
// kelvara serve, over HTTP and over stdio: the ToolSDK's example scripts ask the user
// (elicitation) and the client's model (sampling), and the client's handlers answer; a
// client that declared neither gets the script's error at once.
//
//   node ask-interop.mjs PATH/TO/kelvara

import assert from 'node:assert/strict';
import { copyFileSync, mkdirSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { StreamableHTTPClientTransport } from '@modelcontextprotocol/sdk/client/streamableHttp.js';
import { CreateMessageRequestSchema, ElicitRequestSchema } from '@modelcontextprotocol/sdk/types.js';
import { argumentsOrUsage, check, finish, freeLowPort, run, sandbox, serve, stop, withTimeout, workDir } from './harness.mjs';

const here = dirname(fileURLToPath(import.meta.url));
const [kelvara] = argumentsOrUsage('ask-interop.mjs PATH/TO/kelvara');
const work = workDir('kelvara-ask-');
const bundle = join(work, 'bundle');
for (const folder of ['Tools', 'Resources', 'Prompts', 'Scripts']) mkdirSync(join(bundle, folder), { recursive: true });
const examples = join(here, '..', '..', 'resources', 'ToolSDK', 'Scripts', 'examples');
for (const script of ['ask_user.js', 'ask_model.js']) copyFileSync(join(examples, script), join(bundle, 'Scripts', script));
const tool = (name, script, properties) => ({
  name, description: name, execHandler: name, execMethod: 'toolEntry', pluginName: '', scriptName: `Scripts/${script}`,
  toolType: 'ScriptTool', annotations: { audience: ['user'], lastModified: '2025-06-18T00:00:00.000Z', priority: 0.5 },
  inputSchema: { type: 'object', properties }, outputSchema: { type: 'object', properties: {} },
});
writeFileSync(join(bundle, 'Tools', 'plan_trip.json'), JSON.stringify(tool('plan_trip', 'ask_user.js', { city: { type: 'string' } })));
writeFileSync(join(bundle, 'Tools', 'summarize.json'), JSON.stringify(tool('summarize', 'ask_model.js', { text: { type: 'string' } })));

const env = sandbox(join(work, 'home'));
const granted = await run(kelvara, ['access', 'grant', 'folder', work], env);
check('kelvara access grants the bundle folder', () => assert.equal(granted.code, 0, granted.stderr));

// A client that answers both kinds of request, remembering what it was asked.
function answeringClient() {
  const client = new Client({ name: 'kelvara-ask', version: '1.0.0' }, { capabilities: { elicitation: {}, sampling: {} } });
  const asked = {};
  client.setRequestHandler(ElicitRequestSchema, async (request) => {
    asked.elicitation = request.params;
    return { action: 'accept', content: { nights: 4, budget: 'high', extras: ['food'] } };
  });
  client.setRequestHandler(CreateMessageRequestSchema, async (request) => {
    asked.sampling = request.params;
    return { role: 'assistant', content: { type: 'text', text: 'A short summary.' }, model: 'test-model', stopReason: 'endTurn' };
  });
  return { client, asked };
}

async function exercise(label, makeTransport) {
  const { client, asked } = answeringClient();
  await withTimeout(client.connect(makeTransport()), 30000, `${label}: connect`);
  const trip = await withTimeout(client.callTool({ name: 'plan_trip', arguments: { city: 'Lisbon' } }), 30000, `${label}: plan_trip`);
  check(`${label}: the user's answer reaches the script`, () => {
    assert.equal(trip.isError, undefined, JSON.stringify(trip));
    assert.equal(trip.content[0].text, '4 nights in Lisbon on a high budget, with food.');
  });
  check(`${label}: the client is asked with the script's message and schema`, () => {
    assert.equal(asked.elicitation.message, 'Some details for your trip to Lisbon');
    assert.equal(asked.elicitation.requestedSchema.properties.nights.default, 3);
    assert.deepEqual(asked.elicitation.requestedSchema.required, ['nights']);
  });
  const summary = await withTimeout(client.callTool({ name: 'summarize', arguments: { text: 'Long text.' } }), 30000, `${label}: summarize`);
  check(`${label}: the client's model answers the script`, () => {
    assert.equal(summary.content[0].text, 'A short summary.\n(test-model)', JSON.stringify(summary));
    assert.equal(asked.sampling.maxTokens, 200);
    assert.equal(asked.sampling.systemPrompt, 'You write short, plain summaries.');
    assert.match(asked.sampling.messages[0].content.text, /Long text\./);
  });
  await client.close();

  // Declared neither: the script's error, at once.
  const bare = new Client({ name: 'kelvara-bare', version: '1.0.0' });
  await withTimeout(bare.connect(makeTransport()), 30000, `${label}: connect without capabilities`);
  const refused = await withTimeout(bare.callTool({ name: 'plan_trip', arguments: { city: 'Oslo' } }), 30000, `${label}: refused`);
  check(`${label}: a client without the capability gets the script's error`, () => {
    assert.equal(refused.isError, true, JSON.stringify(refused));
    assert.match(refused.content[0].text, /Kelvara\.elicit: the client does not support elicitation/);
  });
  await bare.close();
}

const port = await freeLowPort();
const server = serve(kelvara, ['--import', bundle, '--port', String(port), '--no-token'], env, join(bundle, 'Scripts'));
try {
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr));
  if (state === 'running') {
    await exercise('HTTP', () => new StreamableHTTPClientTransport(new URL(`http://127.0.0.1:${port}/mcp`)));
  }
} finally {
  await stop(server);
}
await exercise('stdio', () => new StdioClientTransport({
  command: kelvara, args: ['serve', '--stdio', '--import', bundle], env, stderr: 'pipe', cwd: join(bundle, 'Scripts'),
}));
finish();
