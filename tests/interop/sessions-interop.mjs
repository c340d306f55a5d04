#!/usr/bin/env node
// What the server says on its own, heard by the official MCP TypeScript SDK client:
// progress through callTool's onprogress, log messages filtered by setLoggingLevel, and the
// tools' list_changed notification, over Streamable HTTP (a session, event-stream answers,
// the session's GET stream) and over stdio. First against echo_server's tools in C++, then,
// given kelvara, against `kelvara serve` with the same tool as a script using Kelvara.progress
// and Kelvara.log, and a script that ends its stream mid-call with Kelvara.closeStream, which
// the client resumes for the rest and the answer.
//
//   node sessions-interop.mjs PATH/TO/echo_server [PATH/TO/kelvara]

import assert from 'node:assert/strict';
import { mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { StreamableHTTPClientTransport } from '@modelcontextprotocol/sdk/client/streamableHttp.js';
import { LoggingMessageNotificationSchema, ToolListChangedNotificationSchema } from '@modelcontextprotocol/sdk/types.js';
import { argumentsOrUsage, check, finish, freeLowPort, run, sandbox, serve, start, stop, withTimeout, workDir } from './harness.mjs';

const [serverPath] = argumentsOrUsage('sessions-interop.mjs PATH/TO/echo_server [PATH/TO/kelvara]');
const kelvara = process.argv[3];

// Runs the checks against a connected transport; `label` names the transport in the checks.
// `adds`: the server has echo_server's add_tool, which changes its list of tools.
async function exercise(label, transport, { adds = true, polls = false } = {}) {
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

  if (polls) {
    // The server ends the call's stream after the first step; the client comes back with the
    // last event id it saw and gets the second step and the answer.
    const steps = [];
    const polled = await withTimeout(
      client.callTool({ name: 'poll', arguments: {} }, undefined, { onprogress: (p) => steps.push(p.message) }),
      15000, `${label}: poll`);
    check(`${label}: a call whose stream the server ends is resumed for the rest and the answer`, () => {
      assert.deepEqual(polled.content, [{ type: 'text', text: 'polled' }]);
      assert.deepEqual(steps, ['before the break', 'after the break']);
    });
  }
  if (!adds) {
    await client.close();
    return;
  }
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
if (kelvara) {
  // The same tool as a script: it logs at four levels, then reports each step after a
  // moment of work (a child process, as a real tool's would be).
  const work = workDir('kelvara-sessions-');
  const bundle = join(work, 'bundle');
  for (const folder of ['Tools', 'Scripts']) mkdirSync(join(bundle, folder), { recursive: true });
  writeFileSync(join(bundle, 'Scripts', 'reporting.js'), `
function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        count: function (params) {
            var steps = params.steps === undefined ? 3 : params.steps;
            var pause = String((params.pause_ms || 0) / 1000);
            ['debug', 'info', 'warning', 'error'].forEach(function (level) {
                Kelvara.log(level, 'count says ' + level);
            });
            for (var i = 1; i <= steps; ++i) {
                Kelvara.shell('sleep ' + pause);
                Kelvara.progress(i, steps, 'step ' + i);
            }
            Kelvara.shell('sleep ' + pause);
            return 'counted to ' + steps;
        },
        poll: function () {
            Kelvara.progress(1, 2, 'before the break');
            Kelvara.closeStream(50);
            Kelvara.shell('sleep 0.1');
            Kelvara.progress(2, 2, 'after the break');
            return 'polled';
        }
    }, sid, handlerName, jsonParams);
}
`);
  const tool = (name) => ({
    name, description: name, execHandler: name, execMethod: 'toolEntry', pluginName: '', scriptName: 'Scripts/reporting.js',
    toolType: 'ScriptTool', inputSchema: { type: 'object', properties: {} }, outputSchema: { type: 'object', properties: {} },
    annotations: { audience: ['user', 'assistant'], lastModified: '2025-06-18T00:00:00.000Z', priority: 0.5 },
  });
  for (const name of ['count', 'poll']) writeFileSync(join(bundle, 'Tools', `${name}.json`), JSON.stringify(tool(name)));
  const env = sandbox(join(work, 'home'));
  const granted = await run(kelvara, ['access', 'grant', 'folder', work], env);
  check('kelvara access grants the bundle folder', () => assert.equal(granted.code, 0, granted.stderr));

  const kelvaraPort = await freeLowPort();
  const served = serve(kelvara, ['--import', bundle, '--port', String(kelvaraPort), '--no-token'], env);
  const servedState = await withTimeout(served.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(servedState, 'running', served.stderr));
  if (servedState === 'running') {
    const http = new StreamableHTTPClientTransport(new URL(served.target(kelvaraPort).url));
    try {
      await exercise('kelvara serve, HTTP', http, { adds: false, polls: true });
    } catch (error) {
      check('kelvara serve, HTTP: the exchange completes', () => assert.fail(String(error?.stack ?? error)));
    }
  }
  const ended = await stop(served, 'kelvara serve to stop');
  check('kelvara serve stops cleanly on SIGTERM', () => assert.equal(ended.code, 0, `exit ${ended.code} signal ${ended.signal}`));

  try {
    await exercise('kelvara serve, stdio', new StdioClientTransport({ command: kelvara, args: ['serve', '--stdio'], env, stderr: 'pipe' }),
      { adds: false });
  } catch (error) {
    check('kelvara serve, stdio: the exchange completes', () => assert.fail(String(error?.stack ?? error)));
  }
  rmSync(work, { recursive: true, force: true });
}
finish();
