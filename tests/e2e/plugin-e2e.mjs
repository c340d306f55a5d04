#!/usr/bin/env node
// End to end: the TextStats sample plug-in registered with `kelvara plugin add`, enabled for
// a run with `kelvara serve --enable-plugin`, and called as a "CustomTool" by the official
// MCP TypeScript SDK client.
//
//   node plugin-e2e.mjs PATH/TO/kelvara PATH/TO/TextStats.so PATH/TO/TextStats.bundle
//
// Every sandbox gets fresh XDG folders in a temporary directory.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const interop = join(here, '..', 'interop');
if (!existsSync(join(interop, 'node_modules', '@modelcontextprotocol', 'sdk'))) {
  console.error(`The SDK is not installed: run "npm ci" in ${interop} (scripts/test does this).`);
  process.exit(1);
}
const { runScenario } = await import(pathToFileURL(join(interop, 'mcp-client.mjs')).href);

const [kelvara, library, bundle] = process.argv.slice(2).map((p) => resolve(p));
if (process.argv.length < 5) {
  console.error('usage: node plugin-e2e.mjs PATH/TO/kelvara PATH/TO/TextStats.so PATH/TO/TextStats.bundle');
  process.exit(2);
}

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

const work = mkdtempSync(join(tmpdir(), 'kelvara-plugin-e2e-'));

function sandbox(name) {
  const root = join(work, name);
  for (const sub of ['data', 'config', 'runtime']) mkdirSync(join(root, sub), { recursive: true });
  return {
    ...process.env,
    XDG_DATA_HOME: join(root, 'data'),
    XDG_CONFIG_HOME: join(root, 'config'),
    XDG_RUNTIME_DIR: join(root, 'runtime'),
    DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent/kelvara-e2e-bus',
  };
}

// The stored port is a signed 16-bit number, so the port must lie below 32768.
async function freeLowPort() {
  for (let attempt = 0; attempt < 200; attempt += 1) {
    const port = 20000 + Math.floor(Math.random() * 12000);
    const free = await new Promise((resolve) => {
      const probe = createServer();
      probe.once('error', () => resolve(false));
      probe.listen(port, '127.0.0.1', () => probe.close(() => resolve(true)));
    });
    if (free) return port;
  }
  throw new Error('no free port below 32768');
}

function withTimeout(promise, ms, what) {
  let timer;
  return Promise.race([
    promise,
    new Promise((_, reject) => { timer = setTimeout(() => reject(new Error(`timed out: ${what}`)), ms); }),
  ]).finally(() => clearTimeout(timer));
}

// Runs kelvara to its end, with input on standard input.
function run(args, env, input = '') {
  return new Promise((resolve) => {
    const child = spawn(kelvara, args, { env, stdio: ['pipe', 'pipe', 'pipe'] });
    let stdout = '';
    let stderr = '';
    child.stdout.on('data', (chunk) => { stdout += chunk; });
    child.stderr.on('data', (chunk) => { stderr += chunk; });
    child.once('exit', (code) => resolve({ code, stdout, stderr }));
    child.stdin.end(input);
  });
}

// Starts kelvara serve; resolves once the server runs or the process has ended.
function serve(args, env) {
  const child = spawn(kelvara, ['serve', ...args], { env, stdio: ['ignore', 'pipe', 'pipe'] });
  const server = { child, stdout: '', stderr: '' };
  server.exited = new Promise((resolve) => child.once('exit', (code, signal) => resolve({ code, signal })));
  server.ready = new Promise((resolve) => {
    child.stdout.on('data', (chunk) => {
      server.stdout += chunk;
      if (server.stdout.includes('\nMCP Server running\n')) resolve('running');
    });
    child.stderr.on('data', (chunk) => { server.stderr += chunk; });
    server.exited.then(() => resolve('exited'));
  });
  return server;
}

async function stop(server) {
  server.child.kill('SIGTERM');
  return withTimeout(server.exited, 20000, 'kelvara serve to stop');
}

try {
  const env = sandbox('run');

  // ---- registration on the terminal ----
  const declined = await run(['plugin', 'add', library], env, 'n\n');
  check('a declined registration registers nothing', () => {
    assert.equal(declined.code, 1, declined.stderr);
    assert.match(declined.stdout, /Review the plugin details before registering/);
    assert.match(declined.stdout, /^ {2}Name: +TextStats$/m);
    assert.match(declined.stdout, /^ {2}Entry point: +textStatsEntry$/m);
    assert.match(declined.stdout, /runs inside Kelvara's own process with your user rights/);
    assert.match(declined.stdout, /Approve & Register\? \[y\/N\]/);
  });
  const emptyList = await run(['plugin', 'list'], env);
  check('the list is still empty', () => assert.equal(emptyList.stdout.trim(), 'No plugins registered yet.'));

  const added = await run(['plugin', 'add', library], env, 'y\n');
  check('a confirmed registration registers the plug-in, disabled', () => {
    assert.equal(added.code, 0, added.stderr);
    assert.match(added.stdout, new RegExp(`^Registered plugin: TextStats \\(${library.replace(/[.*+?^${}()|[\]\\]/g, '\\$&')}\\)$`, 'm'));
    assert.match(added.stdout, /It is disabled\./);
  });
  const again = await run(['plugin', 'add', bundle, '--yes'], env);
  check('the same name cannot be registered twice', () => {
    assert.equal(again.code, 1);
    assert.match(again.stderr, /Information: The custom tool plugin TextStats already exist\./);
  });
  const listed = await run(['plugin', 'list'], env);
  check('the list holds the plug-in once', () => assert.equal(listed.stdout, `TextStats\t1.0.0\t${library}\n`));
  check('the stored list is JSON under "RegisteredPlugins"', () => {
    const conf = readFileSync(join(env.XDG_CONFIG_HOME, 'Kelvara', 'Kelvara.conf'), 'utf8');
    assert.match(conf, /^RegisteredPlugins="@ByteArray\(\[\{\\"id\\":/m);
  });

  // ---- a run without the confirmation: the plug-in is registered but not enabled ----
  const port = await freeLowPort();
  const plain = serve(['--import-builtin', '--port', String(port)], env);
  const plainState = await withTimeout(plain.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(plainState, 'running', plain.stderr + plain.stdout));
  if (plainState === 'running') {
    const { results: [disabled] } = await runScenario(`http://127.0.0.1:${port}/mcp`, [
      { op: 'callTool', name: 'text_stats_plugin', arguments: { text: 'Hello' } },
    ]);
    check('without --enable-plugin the call says the plug-in is not enabled', () => {
      assert.ok(!('error' in disabled), disabled.error);
      const s = disabled.result.structuredContent;
      assert.equal(s.success, false);
      assert.equal(s.error_message, "Requested tool plugin 'TextStats' is not enabled.");
      assert.equal(s.words, 0);
      assert.equal(s.crc32, '');
    });
  }
  const plainEnd = await stop(plain);
  check('the first run stops cleanly', () => assert.equal(plainEnd.code, 0, plain.stderr));

  // ---- a run with the confirmation ----
  const port2 = await freeLowPort();
  const enabled = serve(['--port', String(port2), '--enable-plugin', library], env);
  const state = await withTimeout(enabled.ready, 30000, 'kelvara serve --enable-plugin to start');
  check('kelvara serve --enable-plugin starts and says what it enabled', () => {
    assert.equal(state, 'running', enabled.stderr + enabled.stdout);
    assert.ok(enabled.stdout.split('\n').includes(`Enabled plugin: TextStats (${library})`), enabled.stdout);
  });
  if (state === 'running') {
    const { results } = await runScenario(`http://127.0.0.1:${port2}/mcp`, [
      { op: 'listTools' },
      { op: 'callTool', name: 'text_stats_plugin', arguments: { text: 'Hello wörld\nbye' } },
      { op: 'callTool', name: 'text_stats_plugin', arguments: {} },
    ]);
    const [list, stats, missing] = results;
    for (const r of results) check(`${r.op} succeeds`, () => assert.ok(!('error' in r), r.error));
    check('the listing carries the plug-in tool', () => {
      const tool = list.result.tools.find((t) => t.name === 'text_stats_plugin');
      assert.ok(tool, 'no text_stats_plugin');
      assert.deepEqual(tool.inputSchema.required, ['text']);
    });
    check('the enabled plug-in measures the text', () => {
      assert.deepEqual(stats.result.structuredContent, { characters: 15, words: 3, lines: 2, bytes: 16, crc32: '24aad127' });
      assert.deepEqual(stats.result.content, [{ type: 'text', text: '15 characters, 3 words, 2 lines, 16 bytes, CRC-32 24aad127' }]);
    });
    check("the plug-in's own error comes back as the tool's error", () => {
      const s = missing.result.structuredContent;
      assert.equal(s.success, false);
      assert.equal(s.error_message, "Parameter 'text' must be a string.");
      assert.equal(s.bytes, 0);
    });
  }
  const { code } = await stop(enabled);
  check('SIGTERM stops kelvara serve with exit code 0', () => assert.equal(code, 0, enabled.stderr));
  check('the call is in the log', () => {
    assert.ok(enabled.stdout.split('\n').some((l) => /\[I\] \[PlugIn\] Calling: TextStats, sid:/.test(l)), enabled.stdout);
  });

  // ---- confirmations that cannot be honoured ----
  const fresh = sandbox('fresh');
  const unregistered = await run(['serve', '--port', String(await freeLowPort()), '--enable-plugin', bundle], fresh);
  check('--enable-plugin of a plug-in that is not registered ends with exit code 1', () => {
    assert.equal(unregistered.code, 1);
    assert.match(unregistered.stderr, /^kelvara serve: the plugin 'TextStats' \(.*TextStats\.bundle\) is not registered;/m);
  });
  const gone = await run(['serve', '--enable-plugin', join(work, 'Gone.so')], env);
  check('--enable-plugin of a missing file names it', () => {
    assert.equal(gone.code, 1);
    assert.match(gone.stderr, /kelvara serve: Plugin file not found: .*Gone\.so/);
  });
  const usage = await run(['serve', '--enable-plugin'], env);
  check('--enable-plugin without a file is bad usage', () => assert.equal(usage.code, 2));
} finally {
  rmSync(work, { recursive: true, force: true });
}

console.log(`${passed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
