#!/usr/bin/env node
// Interoperability check: MCP Inspector's command-line client (pinned, on the pinned Node 22)
// against `kelvara serve --import-builtin`.
//
//   node inspector-interop.mjs PATH/TO/kelvara
//
// Lists the tools, calls read_file, reads a file resource and renders a prompt, each through
// a separate run of the Inspector's CLI, as a person trying the server out would.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { rmSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { argumentsOrUsage, check, finish, freeLowPort, run, sandbox, serve, stop, withTimeout, workDir } from './harness.mjs';

const here = dirname(fileURLToPath(import.meta.url));
const [kelvara] = argumentsOrUsage('inspector-interop.mjs PATH/TO/kelvara');
const work = workDir('kelvara-inspector-');
const node22 = join(here, 'node_modules', '.bin', 'node');
const inspector = join(here, 'node_modules', '.bin', 'mcp-inspector');

function inspect(target, args) {
  // Run by the pinned Node; the Inspector's catalog goes to the sandbox.
  const headers = Object.entries(target.headers).flatMap(([name, value]) => ['--header', `${name}: ${value}`]);
  const run = spawnSync(node22, [inspector, '--cli', target.url, ...headers, ...args], {
    encoding: 'utf8', timeout: 60000, env: { ...process.env, HOME: work, MCP_CATALOG_PATH: join(work, 'catalog.json') },
  });
  if (run.status !== 0) throw new Error(`inspector ${args.join(' ')} failed (${run.status}): ${run.stderr}${run.stdout}`);
  return JSON.parse(run.stdout);
}

try {
  const notes = join(work, 'notes.txt');
  writeFileSync(notes, 'Inspected by the Inspector\n');
  const port = await freeLowPort();
  const serveEnv = sandbox(join(work, 'serve'));
  // The notes, and the system file the built-in "file" resource names.
  const granted = await run(kelvara, ['access', 'grant', 'folder', work, '/etc/os-release'], serveEnv);
  check('kelvara access grants the notes folder and the resource file', () => assert.equal(granted.code, 0, granted.stderr));
  const server = serve(kelvara, ['--import-builtin', '--port', String(port)], serveEnv);
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr));
  if (state === 'running') {
    const url = server.target(port);
    check('the Inspector lists the built-in tools', () => {
      const names = inspect(url, ['--method', 'tools/list']).tools.map((t) => t.name);
      assert.ok(names.includes('read_file') && names.includes('text_statistics'), names.join(', '));
    });
    check('the Inspector calls read_file', () => {
      const result = inspect(url, ['--method', 'tools/call', '--tool-name', 'read_file', '--tool-arg', `file_path=${notes}`]);
      assert.equal(result.content[0].text, 'Inspected by the Inspector\n');
      assert.notEqual(result.isError, true);
    });
    check('the Inspector reads a file resource as its text', () => {
      const result = inspect(url, ['--method', 'resources/read', '--uri', 'file:///etc/os-release']);
      assert.match(result.contents[0].text, /^(NAME|PRETTY_NAME|ID)=/m);
    });
    check('the Inspector renders a prompt', () => {
      const result = inspect(url, ['--method', 'prompts/get', '--prompt-name', 'review_code', '--prompt-args', 'code=x = 1', 'language=Python']);
      assert.match(result.messages[0].content.text, /^Review this Python code/);
      assert.match(result.messages[0].content.text, /x = 1$/);
    });
  }
  await stop(server);
} finally {
  rmSync(work, { recursive: true, force: true });
}
finish();
