#!/usr/bin/env node
// The official MCP conformance suite (pinned in package-lock.json, on its pinned Node 22)
// against `kelvara serve` with the fixtures of bundle/.
//
//   node run-conformance.mjs PATH/TO/kelvara [SCENARIO...]
//
// Every server scenario the suite lists runs against a fresh `kelvara serve` on 127.0.0.1,
// in a fresh temporary XDG home: a scenario's script calls move the process's current
// directory (a script runs in its own folder), and the resource fixtures are read from it.
// A scenario in unsupported.json is skipped with its reason; every other one must pass, new
// scenarios of the suite included. Exits 0 when they all pass.

import { spawn, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { freeLowPort, run, sandbox, serve, stop, withTimeout } from '../interop/harness.mjs';

const here = dirname(fileURLToPath(import.meta.url));
const [kelvara, ...chosen] = process.argv.slice(2);
if (!kelvara) {
  console.error('usage: node run-conformance.mjs PATH/TO/kelvara [SCENARIO...]');
  process.exit(2);
}
const node22 = join(here, 'node_modules', '.bin', 'node');
const suite = join(here, 'node_modules', '@modelcontextprotocol', 'conformance', 'dist', 'index.js');
const unsupported = JSON.parse(readFileSync(join(here, 'unsupported.json'), 'utf8'));

function listScenarios() {
  const listed = spawnSync(node22, [suite, 'list', '--server'], { encoding: 'utf8' });
  if (listed.status !== 0) throw new Error(`the suite did not list its scenarios: ${listed.stderr}`);
  return [...listed.stdout.matchAll(/^\s+- ([a-z0-9-]+)/gm)].map((m) => m[1]);
}

function runScenario(url, scenario, cwd) {
  return new Promise((resolve) => {
    const child = spawn(node22, [suite, 'server', '--url', url, '--scenario', scenario], { cwd, env: { ...process.env, NO_COLOR: '1' } });
    let output = '';
    child.stdout.on('data', (chunk) => { output += chunk; });
    child.stderr.on('data', (chunk) => { output += chunk; });
    child.on('exit', (code) => resolve({ code, output }));
  });
}

const work = mkdtempSync(join(tmpdir(), 'kelvara-conformance-'));
let failed = 0;
try {
  const scenarios = chosen.length > 0 ? chosen : listScenarios();
  for (const scenario of scenarios) {
    if (Object.hasOwn(unsupported, scenario)) {
      console.log(`skip    ${scenario}: ${unsupported[scenario]}`);
      continue;
    }
    // The resource fixtures: file resources whose URIs (test://static-text) are read as
    // paths from the server's current directory, a folder named "test:" in it.
    const home = join(work, scenario);
    mkdirSync(join(home, 'test:'), { recursive: true });
    writeFileSync(join(home, 'test:', 'static-text'), 'This is the content of the static text resource.');
    writeFileSync(join(home, 'test:', 'static-binary'), Buffer.from(
      'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==', 'base64'));
    const port = await freeLowPort();
    // The file resources read below the scenario's folder, which is granted for them.
    const granted = await run(kelvara, ['access', 'grant', 'folder', home], sandbox(home));
    if (granted.code !== 0) {
      ++failed;
      console.log(`FAIL    ${scenario}: kelvara access grant folder failed\n${granted.stderr}`);
      continue;
    }
    // The suite's client sends no credentials; the token has tests of its own (serve-e2e).
    const server = serve(kelvara, ['--import', join(here, 'bundle'), '--port', String(port), '--no-token'], { ...sandbox(home) }, home);
    const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
    if (state !== 'running') {
      ++failed;
      console.log(`FAIL    ${scenario}: kelvara serve did not start\n${server.stderr}`);
      continue;
    }
    const { code, output } = await runScenario(`http://localhost:${port}/mcp`, scenario, home);
    await stop(server);
    const summary = /Passed: (\d+)\/(\d+), (\d+) failed/.exec(output);
    const passed = code === 0 && summary && summary[3] === '0' && Number(summary[2]) > 0;
    if (!passed) ++failed;
    console.log(`${passed ? 'pass' : 'FAIL'}    ${scenario}${summary ? ` (${summary[1]}/${summary[2]})` : ''}`);
    if (!passed) console.log(output.split('\n').map((line) => `        ${line}`).join('\n'));
  }
} finally {
  rmSync(work, { recursive: true, force: true });
}
console.log(failed === 0 ? 'every supported scenario passes' : `${failed} scenario(s) failed`);
process.exit(failed === 0 ? 0 : 1);
