#!/usr/bin/env node
// The stdio transport with the official MCP TypeScript SDK client, which launches the
// server as its child process and speaks newline-delimited JSON-RPC on its pipes.
//
//   node stdio-interop.mjs PATH/TO/echo_server PATH/TO/kelvara
//
// 1. echo_server --stdio: the everyday calls.
// 2. kelvara serve --stdio --import-builtin: list the tools, call read_file.
// 3. kelvara serve --stdio driven by hand: standard output holds only protocol lines, a bad
//    line is a parse error, and the end of input ends the process with 0.

import assert from 'node:assert/strict';
import { rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { argumentsOrUsage, check, finish, run, sandbox, scenario, workDir } from './harness.mjs';

const [echoServer, kelvara] = argumentsOrUsage('stdio-interop.mjs PATH/TO/echo_server PATH/TO/kelvara', 2);
const work = workDir('kelvara-stdio-');

// ---- 1. echo_server ----
{
  const text = 'Grüße, "quotes"\nnew line';
  const target = { command: echoServer, args: ['--stdio'] };
  const results = await scenario(target, [
    { op: 'initialize' },
    { op: 'callTool', name: 'echo', arguments: { text } },
    { op: 'readResource', uri: 'echo://readme' },
    { op: 'getPrompt', name: 'greeting', arguments: { name: 'Ada' } },
    { op: 'ping' },
  ]);
  const [init, echo, readme, prompt] = results;
  check('echo_server over stdio names itself', () => assert.equal(init.result.serverInfo.name, 'echo_server'));
  check('echo_server over stdio echoes', () => assert.deepEqual(echo.result.structuredContent, { text }));
  check('echo_server over stdio reads its resource', () => assert.match(JSON.stringify(readme.result), /serves the tool/));
  check('echo_server over stdio renders its prompt', () => assert.match(JSON.stringify(prompt.result), /Say hello to Ada/));
}

// ---- 2. kelvara serve ----
{
  const notes = join(work, 'notes.txt');
  writeFileSync(notes, 'read over stdio\n');
  const serveEnv = sandbox(join(work, 'serve'));
  const granted = await run(kelvara, ['access', 'grant', 'folder', work], serveEnv);
  check('kelvara access grants the folder of the notes', () => assert.equal(granted.code, 0, granted.stderr));
  const target = { command: kelvara, args: ['serve', '--stdio', '--import-builtin'], env: serveEnv };
  const results = await scenario(target, [
    { op: 'initialize' },
    { op: 'listTools' },
    { op: 'callTool', name: 'read_file', arguments: { file_path: notes } },
  ]);
  const [init, list, read] = results;
  check('kelvara serve --stdio names the server', () => assert.equal(init.result.serverInfo.name, 'tamsel_kelvara'));
  check('kelvara serve --stdio lists the built-in tools', () => {
    const names = list.result.tools.map((t) => t.name);
    for (const name of ['read_file', 'write_file', 'list_files', 'text_statistics']) assert.ok(names.includes(name), name);
  });
  check('read_file over stdio gives the file', () => {
    assert.equal(read.result.structuredContent.success, true, JSON.stringify(read.result));
    assert.match(JSON.stringify(read.result.content), /read over stdio/);
  });
  check('the server said where it serves on standard error', () =>
    assert.match(target.stderr, /Serving on standard input and output/));
}

// ---- 3. by hand ----
{
  const input = [
    JSON.stringify({ jsonrpc: '2.0', id: 1, method: 'ping' }),
    'this is not JSON',
    JSON.stringify({ jsonrpc: '2.0', method: 'notifications/initialized' }),
    JSON.stringify({ jsonrpc: '2.0', id: 2, method: 'tools/list' }),
  ].join('\n') + '\n';
  const { code, stdout, stderr } = await run(kelvara, ['serve', '--stdio', '--import-builtin'], sandbox(join(work, 'raw')), input);
  check('the end of input ends kelvara serve --stdio with 0', () => assert.equal(code, 0, stderr));
  const lines = stdout.split('\n').filter((line) => line !== '');
  check('standard output holds one protocol line per request and nothing else', () => {
    const messages = lines.map((line) => JSON.parse(line));
    assert.equal(messages.length, 3, stdout);
    const byId = Object.fromEntries(messages.map((m) => [String(m.id), m]));
    assert.deepEqual(byId['1'].result, {});
    assert.deepEqual(byId.null.error, { code: -32700, message: 'Parse error' });
    assert.ok(byId['2'].result.tools.length > 0);
  });
  check('status and log lines went to standard error', () => assert.match(stderr, /MCP Server running/));
}

rmSync(work, { recursive: true, force: true });
finish();
