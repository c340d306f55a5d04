// What the scripts that drive a server with the official MCP TypeScript SDK client share:
// the SDK check, named checks with a summary, free ports, sandboxed XDG folders, and
// starting, running and stopping child processes.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
if (!existsSync(join(here, 'node_modules', '@modelcontextprotocol', 'sdk'))) {
  console.error(`The SDK is not installed: run "npm ci" in ${here} (scripts/test does this).`);
  process.exit(1);
}
const { runScenario } = await import('./mcp-client.mjs');

// The command-line arguments; fewer than `count` prints the usage and exits with 2.
export function argumentsOrUsage(usage, count = 1) {
  const args = process.argv.slice(2);
  if (args.length < count) {
    console.error(`usage: node ${usage}`);
    process.exit(2);
  }
  return args;
}

let passed = 0;
let failed = 0;
export function check(name, fn) {
  try {
    fn();
    passed += 1;
    console.log(`ok - ${name}`);
  } catch (error) {
    failed += 1;
    console.log(`not ok - ${name}\n  ${String(error.message).split('\n').join('\n  ')}`);
  }
}

export function finish() {
  console.log(`${passed} passed, ${failed} failed`);
  process.exit(failed === 0 ? 0 : 1);
}

// Runs the steps with the SDK client against a URL or a {command, args, env} started over
// stdio; every step must succeed.
export async function scenario(target, steps) {
  const { results } = await runScenario(target, steps);
  for (const r of results) check(`${r.op} succeeds`, () => assert.ok(!('error' in r), r.error));
  return results;
}

export const workDir = (prefix) => mkdtempSync(join(tmpdir(), prefix));

// Kelvara stores its port as a signed 16-bit number, so every port lies below 32768.
export async function freeLowPort() {
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

// An environment with fresh XDG folders below root and no session bus.
export function sandbox(root, extra = {}) {
  for (const sub of ['data', 'config', 'runtime']) mkdirSync(join(root, sub), { recursive: true });
  return {
    ...process.env,
    XDG_DATA_HOME: join(root, 'data'),
    XDG_CONFIG_HOME: join(root, 'config'),
    XDG_RUNTIME_DIR: join(root, 'runtime'),
    DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent/kelvara-e2e-bus',
    ...extra,
  };
}

export function writeJson(path, value) {
  mkdirSync(dirname(path), { recursive: true });
  writeFileSync(path, JSON.stringify(value, null, 2));
}

export function withTimeout(promise, ms, what) {
  let timer;
  return Promise.race([
    promise,
    new Promise((_, reject) => { timer = setTimeout(() => reject(new Error(`timed out: ${what}`)), ms); }),
  ]).finally(() => clearTimeout(timer));
}

// Starts a server; `ready` resolves to 'running' once its output holds the banner, or to
// 'exited' when it ends first.
export function start(command, args, banner, env = process.env, cwd = undefined) {
  const child = spawn(command, args, { env, cwd, stdio: ['ignore', 'pipe', 'pipe'] });
  const server = { child, stdout: '', stderr: '' };
  server.exited = new Promise((resolve) => child.once('exit', (code, signal) => resolve({ code, signal })));
  server.ready = new Promise((resolve) => {
    child.stdout.on('data', (chunk) => {
      server.stdout += chunk;
      if (server.stdout.includes(banner)) resolve('running');
    });
    child.stderr.on('data', (chunk) => { server.stderr += chunk; });
    server.exited.then(() => resolve('exited'));
  });
  return server;
}

const tokenLine = /^Clients must send the header: Authorization: Bearer (\S+)$/m;

// `kelvara serve` with the arguments; ready once it says the server runs and, unless the run
// asks for none, has printed its token (on standard error, after the banner).
// `server.target(port)` is what a client needs: the URL and the token's header.
export function serve(kelvara, args, env, cwd = undefined) {
  const server = start(kelvara, ['serve', ...args], '\nMCP Server running\n', env, cwd);
  const running = server.ready;
  server.ready = running.then(async (state) => {
    if (state !== 'running' || args.includes('--no-token')) return state;
    for (let waited = 0; waited < 5000 && !tokenLine.test(server.stderr); waited += 20) {
      await new Promise((resolve) => setTimeout(resolve, 20));
    }
    server.token = tokenLine.exec(server.stderr)?.[1];
    return state;
  });
  server.target = (port, path = '/mcp') => ({
    url: `http://127.0.0.1:${port}${path}`,
    headers: server.token ? { authorization: `Bearer ${server.token}` } : {},
  });
  return server;
}

// SIGTERM, then the exit code and signal.
export function stop(server, what = 'the server to stop') {
  server.child.kill('SIGTERM');
  return withTimeout(server.exited, 20000, what);
}

// Runs a command to its end with the input on standard input.
export function run(command, args, env, input = '') {
  return new Promise((resolve) => {
    const child = spawn(command, args, { env, stdio: ['pipe', 'pipe', 'pipe'] });
    let stdout = '';
    let stderr = '';
    child.stdout.on('data', (chunk) => { stdout += chunk; });
    child.stderr.on('data', (chunk) => { stderr += chunk; });
    child.once('exit', (code) => resolve({ code, stdout, stderr }));
    child.stdin.end(input);
  });
}
