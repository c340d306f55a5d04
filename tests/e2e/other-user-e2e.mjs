#!/usr/bin/env node
// End to end, as another user of the same machine: `kelvara serve` runs on loopback with one
// folder granted (`kelvara access grant folder`), and a different account (setpriv; CI runs
// as root) sends requests with curl. The checks:
//  - without the token the server answers 401;
//  - with it, read_file and write_file outside the granted folder are denied and nothing is
//    written, also through a link or ".." out of the granted folder;
//  - write_file of an imported script tool's source, or of Kelvara's settings, is denied
//    although both lie inside the granted folder, and the tool still runs its own code;
//  - inside the granted folder the file tools work.
//
//   node other-user-e2e.mjs PATH/TO/kelvara
//
// Exits with 77 (skipped) when not run as root or when setpriv or curl is missing.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import {
  chmodSync, closeSync, existsSync, mkdirSync, mkdtempSync, openSync, readFileSync, realpathSync, rmSync, symlinkSync,
  writeFileSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';

const SKIPPED = 77;
const [kelvara] = process.argv.slice(2);
if (!kelvara) {
  console.error('usage: node other-user-e2e.mjs PATH/TO/kelvara');
  process.exit(2);
}
if (process.getuid() !== 0) {
  console.log('skipped: acting as another user needs root');
  process.exit(SKIPPED);
}
for (const program of ['setpriv', 'curl']) {
  if (spawnSync('sh', ['-c', `command -v ${program}`]).status !== 0) {
    console.log(`skipped: ${program} is not installed`);
    process.exit(SKIPPED);
  }
}
const otherUid = Number(spawnSync('id', ['-u', 'nobody'], { encoding: 'utf8' }).stdout.trim());
const otherGid = Number(spawnSync('id', ['-g', 'nobody'], { encoding: 'utf8' }).stdout.trim());
if (!Number.isInteger(otherUid) || otherUid === 0) {
  console.log('skipped: there is no user "nobody"');
  process.exit(SKIPPED);
}

let passed = 0;
let failed = 0;
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

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const annotations = { audience: ['user', 'assistant'], lastModified: '2025-06-18T00:00:00.000Z', priority: 0.9 };
function writeJson(path, value) {
  mkdirSync(dirname(path), { recursive: true });
  writeFileSync(path, JSON.stringify(value, null, 2));
}

// The layout: everything of the run lies inside the granted folder (the XDG folders with the
// settings and store, the imported bundle with its script) except a private folder of the
// server's user.
// Without links on the way, so that the texts name the paths as the server resolves them.
const work = realpathSync(mkdtempSync(join(tmpdir(), 'kelvara-other-user-')));
const granted = join(work, 'granted');
const xdg = join(granted, 'xdg');
const env = {
  ...process.env,
  XDG_DATA_HOME: join(xdg, 'data'),
  XDG_CONFIG_HOME: join(xdg, 'config'),
  XDG_RUNTIME_DIR: join(xdg, 'runtime'),
  DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent/kelvara-e2e-bus',
  QT_QPA_PLATFORM: 'offscreen',
};
for (const folder of [env.XDG_DATA_HOME, env.XDG_CONFIG_HOME, env.XDG_RUNTIME_DIR]) mkdirSync(folder, { recursive: true });
chmodSync(env.XDG_RUNTIME_DIR, 0o700);
const privateDir = join(work, 'private');
mkdirSync(privateDir, { mode: 0o700 });
const key = join(privateDir, 'key');
writeFileSync(key, 'secret key\n', { mode: 0o600 });
const inside = join(granted, 'inside.txt');
writeFileSync(inside, 'granted text\n');
symlinkSync(key, join(granted, 'escape'));

const bundle = join(granted, 'bundle');
const source = join(bundle, 'Scripts', 'run_me.js');
const originalSource = 'function toolEntry(sid, handlerName, jsonParams) {\n'
  + "    return JSON.stringify({ text: 'the original source ran' });\n}\n";
writeJson(join(bundle, 'Tools', 'run_me.json'), {
  name: 'run_me', description: 'A script tool of the test', execHandler: 'runMe', execMethod: 'toolEntry',
  pluginName: '', scriptName: 'Scripts/run_me.js', toolType: 'ScriptTool', annotations,
  inputSchema: { type: 'object', properties: {} }, outputSchema: { type: 'object', properties: {} },
});
mkdirSync(dirname(source), { recursive: true });
writeFileSync(source, originalSource);

// A request as the other user, through curl; the answer's status and parsed body.
function asOther(url, body, token) {
  const args = [`--reuid=${otherUid}`, `--regid=${otherGid}`, '--clear-groups', '--', 'curl', '-sS', '--max-time', '60',
    '-o', '-', '-w', '\n%{http_code}', '-H', 'Content-Type: application/json',
    '-H', 'Accept: application/json, text/event-stream'];
  if (token) args.push('-H', `Authorization: Bearer ${token}`);
  args.push('--data-binary', '@-', url);
  const run = spawnSync('setpriv', args, { input: JSON.stringify(body), encoding: 'utf8', cwd: '/' });
  const lines = run.stdout.split('\n');
  const status = Number(lines.pop());
  const text = lines.join('\n');
  let json = null;
  try { json = JSON.parse(text); } catch { /* not JSON: kept as text */ }
  return { status, text, json, stderr: run.stderr };
}

let server;
const serverOut = join(work, 'serve.out');
const serverErr = join(work, 'serve.err');
try {
  const grant = spawnSync(kelvara, ['access', 'grant', 'folder', granted], { env, encoding: 'utf8' });
  check('kelvara access grants the folder', () => {
    assert.equal(grant.status, 0, grant.stderr);
    assert.equal(grant.stdout, `folder ${granted}: granted\n`);
  });

  // Output to files: nothing here reads a pipe while curl runs, and a full pipe would stall
  // the server. The token is asked for on loopback as well.
  const out = openSync(serverOut, 'w');
  const err = openSync(serverErr, 'w');
  server = spawn(kelvara, ['serve', '--import-builtin', '--import', bundle, '--port', '0'],
    { env, stdio: ['ignore', out, err] });
  closeSync(out);
  closeSync(err);
  const exited = new Promise((resolve) => server.once('exit', (code, signal) => resolve({ code, signal })));
  let port;
  let token;
  for (let waited = 0; waited < 30000 && !(port && token) && server.exitCode === null; waited += 50) {
    await sleep(50);
    port = /^Serving on http:\/\/127\.0\.0\.1:(\d+)\//m.exec(readFileSync(serverOut, 'utf8'))?.[1];
    token = /^Clients must send the header: Authorization: Bearer (\S+)$/m.exec(readFileSync(serverErr, 'utf8'))?.[1];
  }
  check('kelvara serve starts and prints its port and token', () => {
    assert.ok(port && token, readFileSync(serverErr, 'utf8') + readFileSync(serverOut, 'utf8'));
  });

  if (port && token) {
    const url = `http://127.0.0.1:${port}/mcp`;
    let id = 0;
    const call = (name, args) => asOther(url, { jsonrpc: '2.0', id: ++id, method: 'tools/call', params: { name, arguments: args } }, token);
    const resultOf = (answer) => answer.json?.result ?? {};
    const textOf = (answer) => resultOf(answer).content?.[0]?.text ?? answer.text;
    const succeeded = (answer) => resultOf(answer).structuredContent?.success === true;

    const who = spawnSync('setpriv', [`--reuid=${otherUid}`, `--regid=${otherGid}`, '--clear-groups', '--', 'id', '-u'],
      { encoding: 'utf8', cwd: '/' });
    check('the requests come from another user', () => assert.equal(Number(who.stdout.trim()), otherUid));

    const anonymous = asOther(url, { jsonrpc: '2.0', id: ++id, method: 'tools/list', params: {} });
    check('tools/list without the token is refused with 401', () => {
      assert.equal(anonymous.status, 401, anonymous.text + anonymous.stderr);
      assert.ok(!anonymous.text.includes('read_file'));
    });
    const listed = asOther(url, { jsonrpc: '2.0', id: ++id, method: 'tools/list', params: {} }, token);
    check('tools/list with the token answers', () => {
      assert.equal(listed.status, 200, listed.text + listed.stderr);
      const names = listed.json.result.tools.map((t) => t.name);
      for (const name of ['read_file', 'write_file', 'run_me']) assert.ok(names.includes(name), names.join(', '));
    });

    const hint = (folder) => ` is not granted. Grant its folder in Settings ▸ Security Scopes, or run: kelvara access grant folder ${folder}`;
    const readKey = call('read_file', { file_path: key });
    const readShadow = call('read_file', { file_path: '/etc/shadow' });
    check('read_file outside the granted folder is denied and tells how to grant it', () => {
      assert.equal(readKey.status, 200);
      assert.equal(succeeded(readKey), false);
      assert.equal(textOf(readKey), `Failed to read file: Access to '${key}'${hint(privateDir)}`);
      assert.equal(textOf(readShadow), `Failed to read file: Access to '/etc/shadow'${hint('/etc')}`);
      assert.ok(!readKey.text.includes('secret key') && !readShadow.text.includes('root:'));
    });
    const viaLink = call('read_file', { file_path: join(granted, 'escape') });
    const climbed = call('read_file', { file_path: `${granted}/../private/key` });
    check('a link or ".." out of the granted folder is denied', () => {
      assert.match(textOf(viaLink), /^Failed to read file: Access to '.*\/escape' \(which leads to '.*\/private\/key'\) is not granted/);
      assert.equal(succeeded(climbed), false);
      assert.ok(!viaLink.text.includes('secret key') && !climbed.text.includes('secret key'));
    });

    const planted = call('write_file', { file_path: join(privateDir, 'planted'), content: 'planted\n' });
    const overLink = call('write_file', { file_path: join(granted, 'escape'), content: 'overwritten\n' });
    check('write_file outside the granted folder is denied and writes nothing', () => {
      assert.equal(textOf(planted), `Failed to write file: Access to '${join(privateDir, 'planted')}'${hint(privateDir)}`);
      assert.equal(succeeded(overLink), false);
      assert.equal(existsSync(join(privateDir, 'planted')), false);
      assert.equal(readFileSync(key, 'utf8'), 'secret key\n');
      assert.equal(existsSync(join(granted, 'escape.backup')), false);
    });

    const rewritten = call('write_file', { file_path: source, content: "function toolEntry() { return JSON.stringify({ text: 'pwned' }); }\n" });
    const ran = call('run_me', {});
    check('write_file of an imported script tool\'s source is denied and the tool runs its own code', () => {
      assert.equal(succeeded(rewritten), false);
      assert.match(textOf(rewritten), /may hold code of Kelvara's script tools/);
      assert.equal(readFileSync(source, 'utf8'), originalSource);
      assert.equal(existsSync(`${source}.backup`), false);
      assert.equal(textOf(ran), 'the original source ran');
    });

    const settings = join(env.XDG_CONFIG_HOME, 'Kelvara', 'Kelvara.conf');
    const settingsBefore = readFileSync(settings, 'utf8');
    const settingsWritten = call('write_file', { file_path: settings, content: '[General]\nmcp.server.requireToken=false\n' });
    const settingsRead = call('read_file', { file_path: settings });
    check('Kelvara\'s settings are neither written nor read, although their folder is granted', () => {
      assert.match(textOf(settingsWritten), /lies in Kelvara's configuration .* which the tools never change, whatever is granted\.$/);
      assert.equal(readFileSync(settings, 'utf8'), settingsBefore);
      assert.equal(succeeded(settingsRead), false);
      assert.ok(!settingsRead.text.includes(token), 'the token must not leave through read_file');
    });

    const written = call('write_file', { file_path: inside, content: 'written by a client\n' });
    const readBack = call('read_file', { file_path: inside });
    check('inside the granted folder the file tools work', () => {
      assert.equal(succeeded(written), true, written.text);
      assert.equal(readFileSync(inside, 'utf8'), 'written by a client\n');
      assert.equal(readFileSync(`${inside}.backup`, 'utf8'), 'granted text\n');
      assert.equal(textOf(readBack), 'written by a client\n');
    });
  }

  server.kill('SIGTERM');
  const end = await Promise.race([exited, sleep(20000).then(() => null)]);
  check('SIGTERM stops the server with exit code 0', () => assert.equal(end?.code, 0, readFileSync(serverErr, 'utf8')));
} finally {
  if (server && server.exitCode === null && server.signalCode === null) server.kill('SIGKILL');
  rmSync(work, { recursive: true, force: true });
}

console.log(`${passed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
