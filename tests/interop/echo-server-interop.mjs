#!/usr/bin/env node
// Interoperability check: the official MCP TypeScript SDK client against echo_server.
//
//   node echo-server-interop.mjs PATH/TO/echo_server
//
// Starts echo_server on a free loopback port, runs a scenario through mcp-client.mjs
// (initialize, list tools, call echo, read the resource, get the prompt), checks every
// answer, then stops the server with SIGTERM and expects a clean exit.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { existsSync } from 'node:fs';
import { createServer } from 'node:net';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
if (!existsSync(join(here, 'node_modules', '@modelcontextprotocol', 'sdk'))) {
  console.error(`The SDK is not installed: run "npm ci" in ${here} (scripts/test does this).`);
  process.exit(1);
}
const { runScenario } = await import('./mcp-client.mjs');

const serverPath = process.argv[2];
if (!serverPath) {
  console.error('usage: node echo-server-interop.mjs PATH/TO/echo_server');
  process.exit(2);
}

function freePort() {
  return new Promise((resolve, reject) => {
    const probe = createServer();
    probe.once('error', reject);
    probe.listen(0, '127.0.0.1', () => {
      const { port } = probe.address();
      probe.close(() => resolve(port));
    });
  });
}

function startServer(port) {
  return new Promise((resolve, reject) => {
    const child = spawn(serverPath, ['--port', String(port)], { stdio: ['ignore', 'pipe', 'pipe'] });
    let stderr = '';
    child.stderr.on('data', (chunk) => { stderr += chunk; });
    child.once('error', reject);
    child.once('exit', (code) => reject(new Error(`echo_server exited early (${code}): ${stderr}`)));
    child.stdout.on('data', (chunk) => {
      if (String(chunk).includes('listening')) resolve(child);
    });
  });
}

const port = await freePort();
const server = await startServer(port);
server.removeAllListeners('exit');
const exited = new Promise((resolve) => server.once('exit', (code, signal) => resolve({ code, signal })));

let failed = 0;
let passed = 0;
function check(name, fn) {
  try {
    fn();
    passed += 1;
    console.log(`ok - ${name}`);
  } catch (error) {
    failed += 1;
    console.log(`not ok - ${name}\n  ${String(error.message).split('\n').join('\n  ')}`);
  }
}

try {
  const text = 'Grüße, "quotes" and \\ backslash\nnew line';
  const { results } = await runScenario(`http://127.0.0.1:${port}/mcp`, [
    { op: 'initialize' },
    { op: 'listTools' },
    { op: 'callTool', name: 'echo', arguments: { text } },
    { op: 'readResource', uri: 'echo://readme' },
    { op: 'getPrompt', name: 'greeting', arguments: { name: 'Ada' } },
    { op: 'ping' },
  ]);
  const byOp = Object.fromEntries(results.map((r) => [r.op, r]));
  for (const r of results) check(`${r.op} succeeds`, () => assert.ok(!('error' in r), r.error));

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
  check('the resource reads with its content inside the text dump', () => {
    const [content] = byOp.readResource.result.contents;
    assert.equal(content.uri, 'echo://readme');
    assert.equal(content.mimeType, 'text/plain');
    assert.match(JSON.parse(content.text).content, /echo_server serves the tool 'echo'/);
  });
  check('the prompt renders with its argument', () => {
    const { messages } = byOp.getPrompt.result;
    assert.equal(messages[0].role, 'user');
    assert.equal(messages[0].content.text, 'Say hello to Ada.');
  });
} finally {
  server.kill('SIGTERM');
}
const { code, signal } = await exited;
check('echo_server stops cleanly on SIGTERM', () => assert.equal(code, 0, `exit ${code} signal ${signal}`));

console.log(`${passed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
