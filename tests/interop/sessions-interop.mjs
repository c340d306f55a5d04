#!/usr/bin/env node
// What the server says on its own, heard by the official MCP TypeScript SDK client:
// progress through callTool's onprogress, log messages filtered by setLoggingLevel, and the
// tools' list_changed notification, over Streamable HTTP (a session, event-stream answers,
// the session's GET stream) and over stdio.
//
//   node sessions-interop.mjs PATH/TO/echo_server

import assert from 'node:assert/strict';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { StreamableHTTPClientTransport } from '@modelcontextprotocol/sdk/client/streamableHttp.js';
import { LoggingMessageNotificationSchema, ToolListChangedNotificationSchema } from '@modelcontextprotocol/sdk/types.js';
import { argumentsOrUsage, check, finish, freeLowPort, start, stop, withTimeout } from './harness.mjs';

const [serverPath] = argumentsOrUsage('sessions-interop.mjs PATH/TO/echo_server');

// Runs the checks against a connected transport; `label` names the transport in the checks.
async function exercise(label, transport) {
  const client = new Client({ name: 'kelvara-sessions-interop', version: '1.0.0' });
  const logs = [];
  let listChanged;
  const changed = new Promise((resolve) => { listChanged = resolve; });
  client.setNotificationHandler(LoggingMessageNotificationSchema, (notification) => logs.push(notification.params));
  client.setNotificationHandler(ToolListChangedNotificationSchema, () => listChanged());
  await withTimeout(client.connect(transport), 15000, `${label}: connect`);

  check(`${label}: the server advertises logging and tool list changes`, () => {
    const capabilities = client.getServerCapabilities();
    assert.ok(capabilities.logging);
    assert.equal(capabilities.tools.listChanged, true);
  });

  // Each step takes a moment of work, as a real tool's does: the SDK client handles a
  // notification a turn after it reads it but an answer at once, so progress lines read in
  // one chunk with the answer would find their handler gone.
  const progress = [];
  const counted = await withTimeout(
    client.callTool({ name: 'count', arguments: { steps: 3, pause_ms: 30 } }, undefined, { onprogress: (p) => progress.push(p) }),
    15000, `${label}: count`);
  check(`${label}: callTool's onprogress hears every step before the answer`, () => {
    assert.deepEqual(counted.content, [{ type: 'text', text: 'counted to 3' }]);
    assert.deepEqual(progress.map((p) => [p.progress, p.total, p.message]),
      [[1, 3, 'step 1'], [2, 3, 'step 2'], [3, 3, 'step 3']]);
  });
  check(`${label}: without a chosen level the tool's messages come from info up`, () => {
    assert.deepEqual(logs.map((l) => l.level), ['info', 'warning', 'error']);
    assert.equal(logs[0].logger, 'count');
    assert.equal(logs[0].data, 'count says info');
  });

  logs.length = 0;
  await withTimeout(client.setLoggingLevel('warning'), 15000, `${label}: setLoggingLevel`);
  await withTimeout(client.callTool({ name: 'count', arguments: { steps: 1 } }), 15000, `${label}: count again`);
  check(`${label}: setLoggingLevel('warning') filters the messages`, () => {
    assert.deepEqual(logs.map((l) => l.level), ['warning', 'error']);
  });

  await withTimeout(client.callTool({ name: 'add_tool', arguments: { name: 'fresh' } }), 15000, `${label}: add_tool`);
  const heard = await withTimeout(changed.then(() => true), 15000, `${label}: tools/list_changed`).catch(() => false);
  check(`${label}: the list_changed handler fires after a tool is added`, () => assert.ok(heard));
  const { tools } = await withTimeout(client.listTools(), 15000, `${label}: listTools`);
  check(`${label}: the new tool is listed`, () => assert.ok(tools.some((t) => t.name === 'fresh')));
  await client.close();
}

const port = await freeLowPort();
const server = start(serverPath, ['--port', String(port), '--reporting'], 'listening');
const state = await withTimeout(server.ready, 30000, 'echo_server to start');
check('echo_server --reporting starts', () => assert.equal(state, 'running', server.stderr));
if (state === 'running') {
  const http = new StreamableHTTPClientTransport(new URL(`http://127.0.0.1:${port}/mcp`));
  try {
    await exercise('HTTP', http);
    check('HTTP: the client had a session', () => assert.match(http.sessionId ?? '', /^[0-9a-f]{32}$/));
  } catch (error) {
    check('HTTP: the exchange completes', () => assert.fail(String(error?.stack ?? error)));
  }
}
const { code, signal } = await stop(server, 'echo_server to stop');
check('echo_server stops cleanly on SIGTERM with a stream open', () => assert.equal(code, 0, `exit ${code} signal ${signal}`));

try {
  await exercise('stdio', new StdioClientTransport({ command: serverPath, args: ['--stdio', '--reporting'], stderr: 'pipe' }));
} catch (error) {
  check('stdio: the exchange completes', () => assert.fail(String(error?.stack ?? error)));
}
finish();
