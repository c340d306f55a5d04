#!/usr/bin/env node
// End to end: `kelvara serve` driven by the official MCP TypeScript SDK client.
//
//   node serve-e2e.mjs PATH/TO/kelvara
//
// Every run of kelvara gets fresh XDG folders in a temporary directory. The checks:
//  1. serve --import-builtin --import BUNDLE: the listing carries the execution fields; a
//     built-in file tool, the built-in script tool, a "file" resource and a prompt answer; a
//     tool whose executor this build lacks gives the router's error result with the output
//     schema's neutral values; SIGTERM stops it with exit code 0.
//  2. A port that is taken: exit code 1 and the failure text on standard error.
//  3. A record that cannot be exported keeps the server from starting (exit code 1).

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const interop = join(here, '..', 'interop');
if (!existsSync(join(interop, 'node_modules', '@modelcontextprotocol', 'sdk'))) {
  console.error(`The SDK is not installed: run "npm ci" in ${interop} (scripts/test does this).`);
  process.exit(1);
}
const { runScenario } = await import(pathToFileURL(join(interop, 'mcp-client.mjs')).href);

const kelvara = process.argv[2];
if (!kelvara) {
  console.error('usage: node serve-e2e.mjs PATH/TO/kelvara');
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

const work = mkdtempSync(join(tmpdir(), 'kelvara-e2e-'));

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

function writeJson(path, value) {
  mkdirSync(dirname(path), { recursive: true });
  writeFileSync(path, JSON.stringify(value, null, 2));
}

const annotations = { audience: ['user', 'assistant'], lastModified: '2025-06-18T00:00:00.000Z', priority: 0.9 };
function tool(name, fields, inputProperties = {}, outputProperties = {}, required = undefined) {
  const inputSchema = { type: 'object', properties: inputProperties };
  if (required) inputSchema.required = required;
  return {
    name, description: `The tool ${name}`, execHandler: '', execMethod: '', pluginName: '', scriptName: '',
    toolType: 'BuiltinTool', annotations, inputSchema, outputSchema: { type: 'object', properties: outputProperties },
    ...fields,
  };
}

// The test bundle: a file tool, a tool without an executor, a file resource and a prompt.
const notesPath = join(work, 'notes.txt');
writeFileSync(notesPath, 'Kelvara end-to-end notes\nsecond line\n');
const bundle = join(work, 'bundle');
writeJson(join(bundle, 'Tools', 'read_notes.json'), tool('read_notes',
  { execHandler: 'FileAccessHandler', execMethod: 'readFile', title: 'Read notes' },
  { file_path: { type: 'string', description: 'The file' } },
  { success: { type: 'boolean', description: '' }, line_count: { type: 'integer', description: '' } },
  ['file_path']));
writeJson(join(bundle, 'Tools', 'list_calendars.json'), tool('list_calendars',
  { execHandler: 'CalendarToolHandler', execMethod: 'listCalendars' }, {},
  {
    count: { type: 'integer', description: 'Number of calendars' },
    calendars: { type: 'array', description: '', items: { type: 'object', properties: {} } },
    writable: { type: 'boolean', description: '' },
    source: { type: 'string', description: '' },
  }));
writeJson(join(bundle, 'Resources', 'notes.json'), {
  uri: pathToFileURL(notesPath).href, name: 'Notes', description: 'Notes of the test', mimeType: 'text/plain',
  type: 'file', contextTags: '["e2e"]', relatedResources: '', annotations,
});
writeJson(join(bundle, 'Prompts', 'greeting.json'), {
  name: 'greeting', description: 'Greets someone', template: 'Hello {who}',
  arguments: [{ name: 'who', description: 'Whom to greet', required: true }],
});
writeFileSync(join(bundle, 'Tools', 'IGNORED.JSON'), '{"not": "read"}');

// Starts kelvara serve; resolves once the server runs or the process has ended.
function serve(args, env) {
  const child = spawn(kelvara, ['serve', ...args], { env, stdio: ['ignore', 'pipe', 'pipe'] });
  const run = { child, stdout: '', stderr: '' };
  run.exited = new Promise((resolve) => child.once('exit', (code, signal) => resolve({ code, signal })));
  run.ready = new Promise((resolve) => {
    child.stdout.on('data', (chunk) => {
      run.stdout += chunk;
      if (run.stdout.includes('\nMCP Server running\n')) resolve('running');
    });
    child.stderr.on('data', (chunk) => { run.stderr += chunk; });
    run.exited.then(() => resolve('exited'));
  });
  return run;
}

function withTimeout(promise, ms, what) {
  let timer;
  return Promise.race([
    promise,
    new Promise((_, reject) => { timer = setTimeout(() => reject(new Error(`timed out: ${what}`)), ms); }),
  ]).finally(() => clearTimeout(timer));
}

try {
  // ---- 1. a running server ----
  const port = await freeLowPort();
  const server = serve(['--import-builtin', '--import', bundle, '--port', String(port)], sandbox('run'));
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr + server.stdout));

  if (state === 'running') {
    const { results } = await runScenario(`http://127.0.0.1:${port}/mcp`, [
      { op: 'initialize' },
      { op: 'listTools' },
      { op: 'callTool', name: 'read_notes', arguments: { file_path: notesPath } },
      { op: 'callTool', name: 'list_calendars', arguments: {} },
      { op: 'callTool', name: 'text_statistics', arguments: { text: 'One two two. Three!' } },
      { op: 'readResource', uri: pathToFileURL(notesPath).href },
      { op: 'getPrompt', name: 'greeting', arguments: { who: 'Ada' } },
    ]);
    const [init, list, read, calendars, stats, resource, prompt] = results;
    // The SDK keeps only the members it knows; the execution fields are read off the wire.
    const wire = await (await fetch(`http://127.0.0.1:${port}/mcp`, {
      method: 'POST',
      headers: { 'content-type': 'application/json', accept: 'application/json, text/event-stream' },
      body: JSON.stringify({ jsonrpc: '2.0', id: 7, method: 'tools/list', params: {} }),
    })).json();
    for (const r of results) check(`${r.op} succeeds`, () => assert.ok(!('error' in r), r.error));

    check('initialize names the server', () => {
      assert.equal(init.result.serverInfo.name, 'Kelvara Server');
      assert.equal(init.result.instructions, 'Kelvara - Message Context Protocol Server');
    });
    check('the listing holds the bundle and the built-in tools with their execution fields', () => {
      const names = list.result.tools.map((t) => t.name).sort();
      assert.deepEqual(names, ['fetch_json', 'git_log', 'list_calendars', 'list_files', 'notes', 'read_file', 'read_notes',
        'system_info', 'text_statistics', 'text_stats_plugin', 'write_file']);
      const byName = Object.fromEntries(wire.result.tools.map((t) => [t.name, t]));
      const t = byName.read_notes;
      assert.equal(t.toolType, 'BuiltinTool');
      assert.equal(t.execHandler, 'FileAccessHandler');
      assert.equal(t.execMethod, 'readFile');
      assert.equal(t.pluginName, '');
      assert.equal(t.scriptName, '');
      assert.equal(t.title, 'Read notes');
      assert.deepEqual(t.inputSchema.required, ['file_path']);
      assert.equal(byName.text_statistics.toolType, 'ScriptTool');
      assert.match(byName.text_statistics.scriptName, /Configuration\/Scripts\/text_statistics\.js$/);
    });
    check('a built-in file tool reads the file', () => {
      assert.equal(read.result.content[0].text, 'Kelvara end-to-end notes\nsecond line\n');
      assert.equal(read.result.structuredContent.success, true);
      assert.equal(read.result.structuredContent.line_count, 3);
    });
    check('a tool without an executor gives the error result with neutral values', () => {
      const s = calendars.result.structuredContent;
      assert.equal(s.success, false);
      assert.match(s.error_message, /list_calendars:listCalendars/);
      assert.equal(s.error_code, -1);
      assert.equal(s.count, 0);
      assert.deepEqual(s.calendars, []);
      assert.equal(s.writable, false);
      assert.equal(s.source, '');
      assert.equal(calendars.result.content[0].text, `Error -1 ${s.error_message}`);
    });
    check('the built-in script tool runs', () => {
      const s = stats.result.structuredContent;
      assert.equal(s.success, true);
      assert.equal(s.words, 4);
      assert.equal(s.sentences, 2);
      assert.deepEqual(s.top_words[0], { word: 'two', count: 2 });
    });
    check('a "file" resource gives the file text', () => {
      const [content] = resource.result.contents;
      assert.equal(content.mimeType, 'text/plain');
      assert.equal(JSON.parse(content.text).content, 'Kelvara end-to-end notes\nsecond line\n');
    });
    check('a prompt gives the fixed text', () => {
      assert.equal(prompt.result.messages[0].content.text, 'Error: Prompt handler not implemented yet');
    });
  }

  server.child.kill('SIGTERM');
  const { code, signal } = await withTimeout(server.exited, 20000, 'kelvara serve to stop');
  check('SIGTERM stops kelvara serve with exit code 0', () => assert.equal(code, 0, `exit ${code} signal ${signal}\n${server.stderr}`));
  check('status words and log lines go to standard output', () => {
    const lines = server.stdout.split('\n');
    for (const status of ['Starting MCP Server...', 'Exporting configurations...', 'Creating server...',
      'Starting server...', 'MCP Server running', 'Stopping MCP Server...', 'MCP Server stopped']) {
      assert.ok(lines.includes(status), `missing status line ${status}`);
    }
    assert.ok(lines.some((l) => /^\d\d:\d\d:\d\d\.\d{3} \[I\] Executing tool: read_notes$/.test(l)), 'no log line of the tool call');
    assert.ok(lines.some((l) => /^Import complete — 2 tools, 1 resources, 1 prompts imported\./.test(l)), 'no import summary');
  });

  // ---- 2. a port that is taken ----
  const blocker = createServer();
  const takenPort = await freeLowPort();
  await new Promise((resolve) => blocker.listen(takenPort, '127.0.0.1', resolve));
  const refused = serve(['--port', String(takenPort)], sandbox('taken'));
  const refusedEnd = await withTimeout(refused.exited, 30000, 'kelvara serve on a taken port');
  blocker.close();
  check('a taken port ends with exit code 1 and the failure text', () => {
    assert.equal(refusedEnd.code, 1);
    assert.match(refused.stderr, /^Failed to start MCP Server: Failed to start MCP server$/m);
  });

  // ---- 3. a record that cannot be exported ----
  const badBundle = join(work, 'bad-bundle');
  writeJson(join(badBundle, 'Tools', 'nameless.json'), tool('nameless',
    { execHandler: 'FileAccessHandler', execMethod: 'readFile' }, { '': { type: 'string', description: 'no name' } }));
  const badEnv = sandbox('bad');
  const bad = serve(['--import', badBundle, '--listen-all', '--port', String(await freeLowPort())], badEnv);
  const badEnd = await withTimeout(bad.exited, 30000, 'kelvara serve with an unexportable tool');
  check('an export failure keeps the server from starting', () => {
    assert.equal(badEnd.code, 1);
    assert.match(bad.stderr, /Failed to start MCP Server: .*MCPError -32605: Unable to save server configuration/);
    assert.match(bad.stdout, /Failed to export tool 'nameless': Invalid configuration: Parameter input schema name missing\./);
  });
  check('the start saved --listen-all before the export', () => {
    const settings = readFileSync(join(badEnv.XDG_CONFIG_HOME, 'Kelvara', 'Kelvara.conf'), 'utf8');
    assert.match(settings, /^mcp\.server\.listen\.all=true$/m);
  });

  // ---- 4. bad usage ----
  const usage = serve(['--port', '70000'], sandbox('usage'));
  const usageEnd = await withTimeout(usage.exited, 30000, 'kelvara serve with a bad port');
  check('a port outside the stored range is refused', () => {
    assert.equal(usageEnd.code, 2);
    assert.match(usage.stderr, /Invalid port number\./);
  });
} finally {
  rmSync(work, { recursive: true, force: true });
}

console.log(`${passed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
