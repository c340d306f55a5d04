#!/usr/bin/env node
// The installed package as a new user meets it, driven by the official SDK client:
//
//   node package-e2e.mjs /usr/bin/kelvara
//
// A fresh user's folders, no resource override: `kelvara serve --stdio` finds its bundle
// under /usr/share/kelvara, imports it on this first start, and lists its tools; the
// configuration printed for clients launches this very executable.

import assert from 'node:assert/strict';
import { rmSync } from 'node:fs';
import { join } from 'node:path';
import { argumentsOrUsage, check, finish, run, sandbox, scenario, workDir } from '../interop/harness.mjs';

const [kelvara] = argumentsOrUsage('package-e2e.mjs /usr/bin/kelvara');
const work = workDir('kelvara-package-');
const env = sandbox(join(work, 'user'));
delete env.KELVARA_RESOURCES;

const target = { command: kelvara, args: ['serve', '--stdio'], env };
const [init, list] = await scenario(target, [{ op: 'initialize' }, { op: 'listTools' }]);
check('the installed server answers the handshake', () => assert.equal(init.result.serverInfo.name, 'tamsel_kelvara'));
check('the installed server lists its built-in tools on a first start', () => {
  const names = list.result.tools.map((t) => t.name);
  for (const name of ['read_file', 'write_file', 'list_files']) assert.ok(names.includes(name), names.join(', '));
});
check('the first start said it imported the bundle', () => assert.match(target.stderr, /importing the built-in/));

const config = await run(kelvara, ['mcp-config'], env);
check('mcp-config names the installed executable', () => {
  assert.equal(config.code, 0, config.stderr);
  assert.deepEqual(JSON.parse(config.stdout), { mcpServers: { kelvara: { command: kelvara, args: ['serve', '--stdio'] } } });
});

rmSync(work, { recursive: true, force: true });
finish();
