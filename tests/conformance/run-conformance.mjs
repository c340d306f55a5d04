#!/usr/bin/env node
// The official MCP conformance suite (pinned in package-lock.json, on its pinned Node 22)
// against `kelvara serve` with the fixtures of bundle/.
//
//   node run-conformance.mjs PATH/TO/kelvara [SCENARIO...]
//
// One `kelvara serve` on 127.0.0.1, in a fresh temporary XDG home, answers every server
// scenario the suite lists, one after the other, as a server in use would. The bundle is
// copied into the home and the server runs in its Scripts folder: a script call runs in
// its script's folder, so that is where the file resources (test://static-text is read as
// the path test:/static-text) are found before and after any script call. A scenario in
// unsupported.json is skipped with its reason; every other one must pass, new scenarios of
// the suite included. Exits 0 when they all pass.

import { spawn, spawnSync } from 'node:child_process';
import { cpSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
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
let server;
try {
  const scenarios = chosen.length > 0 ? chosen : listScenarios();
  const bundle = join(work, 'bundle');
  cpSync(join(here, 'bundle'), bundle, { recursive: true });
  const folder = join(bundle, 'Scripts');
  mkdirSync(join(folder, 'test:', 'template', '123'), { recursive: true });
  writeFileSync(join(folder, 'test:', 'static-text'), 'This is the content of the static text resource.');
  writeFileSync(join(folder, 'test:', 'static-binary'), Buffer.from(
    'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==', 'base64'));
  writeFileSync(join(folder, 'test:', 'template', '123', 'data'), JSON.stringify({ id: '123', templateTest: true, data: 'Data for ID: 123' }));
  writeFileSync(join(folder, 'test:', 'watched-resource'), 'The watched resource.');
  const port = await freeLowPort();
  // The file resources read below the home, which is granted for them.
  const granted = await run(kelvara, ['access', 'grant', 'folder', work], sandbox(work));
  if (granted.code !== 0) throw new Error(`kelvara access grant folder failed\n${granted.stderr}`);
  // The suite's client sends no credentials; the token has tests of its own (serve-e2e).
  server = serve(kelvara, ['--import', bundle, '--port', String(port), '--no-token'], { ...sandbox(work) }, folder);
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  if (state !== 'running') throw new Error(`kelvara serve did not start\n${server.stderr}`);
  for (const scenario of scenarios) {
    if (Object.hasOwn(unsupported, scenario)) {
      console.log(`skip    ${scenario}: ${unsupported[scenario]}`);
      continue;
    }
    const { code, output } = await runScenario(`http://localhost:${port}/mcp`, scenario, work);
    const summary = /Passed: (\d+)\/(\d+), (\d+) failed/.exec(output);
    const passed = code === 0 && summary && summary[3] === '0' && Number(summary[2]) > 0;
    if (!passed) ++failed;
    console.log(`${passed ? 'pass' : 'FAIL'}    ${scenario}${summary ? ` (${summary[1]}/${summary[2]})` : ''}`);
    if (!passed) console.log(output.split('\n').map((line) => `        ${line}`).join('\n'));
  }
} catch (error) {
  ++failed;
  console.log(`FAIL    ${error.message}`);
} finally {
  if (server) await stop(server);
  rmSync(work, { recursive: true, force: true });
}
console.log(failed === 0 ? 'every supported scenario passes' : `${failed} scenario(s) failed`);
process.exit(failed === 0 ? 0 : 1);
