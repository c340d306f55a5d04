#!/usr/bin/env node
// `kelvara serve --stdio` while another Kelvara holds the store, driven by the official SDK
// client's stdio transport.
//
//   node relay-e2e.mjs PATH/TO/kelvara
//
// 1. A `kelvara serve` holds the store and listens on loopback with a token: a second
//    `kelvara serve --stdio` relays to it, so the client lists and calls the first one's tools.
// 2. A process holds the store without a server (as the window does with its server
//    stopped): every request gets the one error that says what to do, notifications none,
//    and the end of input ends the relay with 0.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import {
  argumentsOrUsage, check, finish, freeLowPort, run, sandbox, scenario, serve, stop, withTimeout, workDir,
} from '../interop/harness.mjs';
import { runScenario } from '../interop/mcp-client.mjs';

const [kelvara] = argumentsOrUsage('relay-e2e.mjs PATH/TO/kelvara');
const work = workDir('kelvara-relay-');
const stoppedText = 'Kelvara is running and its MCP server is stopped: press Start server, or close Kelvara';

// ---- 1. relayed ----
{
  const env = sandbox(join(work, 'running'));
  const notes = join(work, 'notes.txt');
  writeFileSync(notes, 'read through the relay\n');
  const granted = await run(kelvara, ['access', 'grant', 'folder', work], env);
  check('kelvara access grants the folder of the notes', () => assert.equal(granted.code, 0, granted.stderr));
  const port = await freeLowPort();
  const server = serve(kelvara, ['--port', String(port), '--require-token'], env);
  const state = await withTimeout(server.ready, 30000, 'the first kelvara serve to start');
  check('the first kelvara serve holds the store and runs', () => {
    assert.equal(state, 'running', server.stderr);
    assert.ok(server.token, 'no token printed');
  });
  if (state === 'running') {
    const target = { command: kelvara, args: ['serve', '--stdio'], env };
    const [init, list, call, stats] = await scenario(target, [
      { op: 'initialize' },
      { op: 'listTools' },
      { op: 'callTool', name: 'read_file', arguments: { file_path: notes } },
      { op: 'callTool', name: 'text_statistics', arguments: { text: 'One two. Three.' } },
    ]);
    check('the relay reaches the running server', () => assert.equal(init.result.serverInfo.name, 'tamsel_kelvara'));
    check('the relay lists the running server\'s tools', () => {
      const names = list.result.tools.map((t) => t.name);
      assert.ok(names.includes('read_file') && names.includes('text_statistics'), names.join(', '));
    });
    check('the relay calls a tool and gives its answer', () => {
      assert.equal(call.result.structuredContent.success, true, JSON.stringify(call.result));
      assert.match(JSON.stringify(call.result.content), /read through the relay/);
      assert.equal(stats.result.structuredContent.words, 3, JSON.stringify(stats.result));
    });
    check('the relay said so on standard error, naming the holder and the address', () =>
      assert.match(target.stderr,
        new RegExp(`the store is in use by Kelvara \\(process ${server.child.pid}\\): relaying to its MCP server at http://127\\.0\\.0\\.1:${port}/mcp`)));
  }
  await stop(server);
}

// ---- 2. the store held, no server ----
{
  const env = sandbox(join(work, 'stopped'));
  const store = join(env.XDG_DATA_HOME, 'Kelvara');
  mkdirSync(store, { recursive: true });
  // Holds the store's lock as a running Kelvara does, without serving anything.
  const holder = spawn('flock', ['--exclusive', join(store, 'Kelvara.sqlite.lock'), 'sleep', '600'], { stdio: 'ignore' });
  await new Promise((resolve) => setTimeout(resolve, 300));
  const input = [
    JSON.stringify({ jsonrpc: '2.0', id: 1, method: 'initialize', params: { protocolVersion: '2025-06-18', capabilities: {}, clientInfo: { name: 't', version: '1' } } }),
    JSON.stringify({ jsonrpc: '2.0', method: 'notifications/initialized' }),
    JSON.stringify({ jsonrpc: '2.0', id: 'two', method: 'tools/list' }),
    JSON.stringify([{ jsonrpc: '2.0', id: 3, method: 'ping' }, { jsonrpc: '2.0', method: 'notifications/cancelled', params: {} }]),
  ].join('\n') + '\n';
  const byHand = await run(kelvara, ['serve', '--stdio'], env, input);
  check('each request gets one error naming what to do, notifications none', () => {
    assert.equal(byHand.code, 0, byHand.stderr);
    const lines = byHand.stdout.split('\n').filter((line) => line !== '').map((line) => JSON.parse(line));
    assert.deepEqual(lines, [1, 'two', 3].map((id) => ({ jsonrpc: '2.0', id, error: { code: -32000, message: stoppedText } })));
  });
  check('standard error says it too', () => assert.match(byHand.stderr, new RegExp(stoppedText)));

  const target = { command: kelvara, args: ['serve', '--stdio'], env };
  const { results } = await runScenario(target, [{ op: 'initialize' }]);
  check('the SDK client shows the error instead of a closed connection', () =>
    assert.match(results[0].error ?? '', new RegExp(`-32000.*${stoppedText}`)));
  const named = await run(kelvara, ['mcp-config', '--http', '--entry'], env);
  check('mcp-config on a held store without a server says the port is a guess', () => {
    assert.equal(named.code, 0, named.stderr);
    assert.equal(JSON.parse(named.stdout).url, 'http://127.0.0.1:8888/mcp');
    assert.match(named.stderr, /the store could not be opened \(it is in use by process \S+\), so its port is not known/);
  });
  holder.kill('SIGTERM');
}

rmSync(work, { recursive: true, force: true });
finish();
