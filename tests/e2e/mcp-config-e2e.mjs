#!/usr/bin/env node
// `kelvara mcp-config`: what it prints is what clients take, tried with the official SDK
// client (stdio and HTTP forms) and MCP Inspector's --config.
//
//   node mcp-config-e2e.mjs PATH/TO/kelvara
//
// 1. The stdio form, as a document and as the bare entry: the SDK client launches it on a
//    fresh store and finds the built-in tools; three launches with --import-builtin in the
//    arguments leave one set of records.
// 2. The HTTP form while `kelvara serve` runs on a port of its own: the port of the running
//    server and its token; the SDK client and the Inspector connect with it as printed.
// 3. Bad usage.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { realpathSync, rmSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import {
  argumentsOrUsage, check, finish, freeLowPort, run, sandbox, scenario, serve, stop, withTimeout, workDir,
} from '../interop/harness.mjs';

const [kelvaraArgument] = argumentsOrUsage('mcp-config-e2e.mjs PATH/TO/kelvara');
const kelvara = realpathSync(kelvaraArgument);
const work = workDir('kelvara-mcp-config-');
const interop = join(dirname(fileURLToPath(import.meta.url)), '..', 'interop');

async function config(args, env) {
  const done = await run(kelvara, ['mcp-config', ...args], env);
  assert.equal(done.code, 0, done.stderr);
  return JSON.parse(done.stdout);
}

// ---- 1. stdio ----
{
  const env = sandbox(join(work, 'stdio'));
  const whole = await config([], env);
  const entry = await config(['--stdio', '--entry'], env);
  check('the stdio form launches this executable with serve --stdio', () => {
    assert.deepEqual(whole, { mcpServers: { kelvara: { command: kelvara, args: ['serve', '--stdio'] } } });
    assert.deepEqual(entry, whole.mcpServers.kelvara);
  });

  const first = { ...entry, env };
  const [, listed] = await scenario(first, [{ op: 'initialize' }, { op: 'listTools' }]);
  const names = listed.result.tools.map((t) => t.name).sort();
  check('a fresh store serves the built-in tools on its first start, and says so', () => {
    assert.ok(names.includes('read_file') && names.includes('text_statistics'), names.join(', '));
    assert.match(first.stderr, /the store holds no configuration yet: importing the built-in/);
  });

  const runs = [];
  for (let launch = 0; launch < 3; launch += 1) {
    const target = { command: entry.command, args: [...entry.args, '--import-builtin'], env };
    const [, again] = await scenario(target, [{ op: 'initialize' }, { op: 'listTools' }]);
    runs.push({ names: again.result.tools.map((t) => t.name).sort(), stderr: target.stderr });
  }
  check('--import-builtin on every launch leaves one set of records', () => {
    for (const launch of runs) assert.deepEqual(launch.names, names);
    assert.equal(new Set(names).size, names.length, 'a tool is listed twice');
  });
  check('only the first start of a store imports by itself', () => {
    for (const launch of runs) assert.doesNotMatch(launch.stderr, /no configuration yet/);
  });
}

// ---- 2. HTTP ----
{
  const env = sandbox(join(work, 'http'));
  const port = await freeLowPort();
  const server = serve(kelvara, ['--port', String(port)], env);
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr));
  if (state === 'running') {
    const whole = await config(['--http'], env);
    const inspectorEntry = await config(['--http', '--entry', '--type', 'streamable-http'], env);
    check('the HTTP form names the running server and its token', () => {
      assert.deepEqual(whole, { mcpServers: { kelvara: {
        type: 'http', url: `http://127.0.0.1:${port}/mcp`, headers: { Authorization: `Bearer ${server.token}` } } } });
      assert.deepEqual(inspectorEntry, { ...whole.mcpServers.kelvara, type: 'streamable-http' });
    });
    check('the server printed the same configuration', () =>
      assert.deepEqual(JSON.parse(/^Client configuration: (.*)$/m.exec(server.stderr)?.[1] ?? '{}'), whole));

    const entry = whole.mcpServers.kelvara;
    const [, listed] = await scenario({ url: entry.url, headers: entry.headers }, [{ op: 'initialize' }, { op: 'listTools' }]);
    check('the SDK client connects with the HTTP form', () =>
      assert.ok(listed.result.tools.some((t) => t.name === 'read_file')));

    const file = join(work, 'inspector.json');
    writeFileSync(file, JSON.stringify({ mcpServers: { kelvara: inspectorEntry } }));
    const inspected = spawnSync(join(interop, 'node_modules', '.bin', 'node'),
      [join(interop, 'node_modules', '.bin', 'mcp-inspector'), '--cli', '--config', file, '--server', 'kelvara',
        '--method', 'tools/list'],
      { encoding: 'utf8', timeout: 60000, env: { ...process.env, HOME: work, MCP_CATALOG_PATH: undefined } });
    check('MCP Inspector connects with --config and the streamable-http entry', () => {
      assert.equal(inspected.status, 0, `${inspected.stderr}${inspected.stdout}`);
      assert.ok(JSON.parse(inspected.stdout).tools.some((t) => t.name === 'read_file'));
    });
  }
  await stop(server);

  // Stopped: the stored port, the same token.
  const stored = await config(['--http', '--entry'], env);
  check('without a running server the stored port is named', () =>
    assert.equal(stored.url, `http://127.0.0.1:${port}/mcp`));
}

// ---- 3. bad usage ----
{
  const env = sandbox(join(work, 'usage'));
  for (const args of [['--type', 'sse', '--http'], ['--port', '80'], ['--stdio', '--http'], ['--http', '--port', '0'], ['--what']]) {
    const done = await run(kelvara, ['mcp-config', ...args], env);
    check(`mcp-config ${args.join(' ')} is bad usage`, () => {
      assert.equal(done.code, 2, done.stdout);
      assert.equal(done.stdout, '');
      assert.match(done.stderr, /^kelvara mcp-config: .+\nTry 'kelvara mcp-config --help'\.\n$/);
    });
  }
}

rmSync(work, { recursive: true, force: true });
finish();
