#!/usr/bin/env node
// Interoperability check: the official MCP TypeScript SDK client against echo_server.
//
//   node echo-server-interop.mjs PATH/TO/echo_server
//
// Starts echo_server on a free loopback port, runs a scenario through mcp-client.mjs
// (initialize, list tools, call echo, read the resource, get the prompt), checks every
// answer, then stops the server with SIGTERM and expects a clean exit.

import assert from 'node:assert/strict';
import { argumentsOrUsage, check, finish, freeLowPort, scenario, start, stop, withTimeout } from './harness.mjs';

const [serverPath] = argumentsOrUsage('echo-server-interop.mjs PATH/TO/echo_server');
const port = await freeLowPort();
const server = start(serverPath, ['--port', String(port)], 'listening');
const state = await withTimeout(server.ready, 30000, 'echo_server to start');
check('echo_server starts', () => assert.equal(state, 'running', server.stderr));

if (state === 'running') {
  const text = 'Grüße, "quotes" and \\ backslash\nnew line';
  const results = await scenario(`http://127.0.0.1:${port}/mcp`, [
    { op: 'initialize' },
    { op: 'listTools' },
    { op: 'callTool', name: 'echo', arguments: { text } },
    { op: 'readResource', uri: 'echo://readme' },
    { op: 'getPrompt', name: 'greeting', arguments: { name: 'Ada' } },
    { op: 'ping' },
  ]);
  const byOp = Object.fromEntries(results.map((r) => [r.op, r]));

  check('initialize reports the server and its capabilities', () => {
    const { serverInfo, capabilities } = byOp.initialize.result;
    assert.equal(serverInfo.name, 'echo_server');
    assert.equal(serverInfo.version, '1.0.0');
    assert.ok(capabilities.tools);
    assert.ok(capabilities.resources);
    assert.ok(capabilities.prompts);
  });
  check('tools/list names echo with its input schema', () => {
    const tools = byOp.listTools.result.tools;
    assert.equal(tools.length, 1);
    assert.equal(tools[0].name, 'echo');
    assert.equal(tools[0].inputSchema.type, 'object');
    assert.deepEqual(tools[0].inputSchema.required, ['text']);
  });
  check('echo returns its text as content and structured content', () => {
    const result = byOp.callTool.result;
    assert.deepEqual(result.content, [{ type: 'text', text }]);
    assert.deepEqual(result.structuredContent, { text });
  });
  check('the resource reads with its own text', () => {
    const [content] = byOp.readResource.result.contents;
    assert.equal(content.uri, 'echo://readme');
    assert.equal(content.mimeType, 'text/plain');
    assert.match(content.text, /^echo_server serves the tool 'echo'/);
  });
  check('the prompt renders with its argument', () => {
    const { messages } = byOp.getPrompt.result;
    assert.equal(messages[0].role, 'user');
    assert.equal(messages[0].content.text, 'Say hello to Ada.');
  });
}

const { code, signal } = await stop(server, 'echo_server to stop');
check('echo_server stops cleanly on SIGTERM', () => assert.equal(code, 0, `exit ${code} signal ${signal}`));

// With persistent connections the SDK client's calls share connections and get the same answers.
const keptPort = await freeLowPort();
const kept = start(serverPath, ['--port', String(keptPort), '--keep-alive'], 'listening');
if (await withTimeout(kept.ready, 30000, 'echo_server --keep-alive to start') === 'running') {
  const steps = Array.from({ length: 20 }, (_, i) => ({ op: 'callTool', name: 'echo', arguments: { text: `call ${i}` } }));
  const results = await scenario(`http://127.0.0.1:${keptPort}/mcp`, steps);
  check('with --keep-alive twenty calls in a row are answered in order', () => {
    assert.deepEqual(results.map((r) => r.result?.structuredContent?.text), steps.map((s) => s.arguments.text));
  });
} else {
  check('echo_server --keep-alive starts', () => assert.fail(kept.stderr));
}
const keptEnd = await stop(kept, 'echo_server --keep-alive to stop');
check('echo_server --keep-alive stops cleanly on SIGTERM', () => assert.equal(keptEnd.code, 0, `exit ${keptEnd.code} signal ${keptEnd.signal}`));
finish();
