#!/usr/bin/env node
// End to end: `kelvara serve` driven by the official MCP TypeScript SDK client.
//
//   node serve-e2e.mjs PATH/TO/kelvara
//
// Every run of kelvara gets fresh XDG folders in a temporary directory. The checks:
//  1. serve --import-builtin --import BUNDLE: the listing carries the execution fields; a
//     built-in file tool reads, writes and lists, the built-in script tool, a "file" resource and a prompt answer; a
//     calendar tool without access gives its refusal with the output schema's neutral values;
//     SIGTERM stops it with exit code 0.
//  2. A port that is taken: exit code 1 and the failure text on standard error.
//  3. A record that cannot be exported keeps the server from starting (exit code 1).

import assert from 'node:assert/strict';
import { mkdirSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { request as httpRequest } from 'node:http';
import { createServer } from 'node:net';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import {
  argumentsOrUsage, check, finish, freeLowPort, run, sandbox, scenario, serve, stop, withTimeout, workDir, writeJson,
} from '../interop/harness.mjs';
import { runScenario } from '../interop/mcp-client.mjs';

const [kelvara] = argumentsOrUsage('serve-e2e.mjs PATH/TO/kelvara');
const work = workDir('kelvara-e2e-');
const env = (name) => sandbox(join(work, name));

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
// A script tool whose parameters are called like the tool's own fields.
const whoamiPath = join(work, 'whoami.js');
writeFileSync(whoamiPath, `function toolEntry(sid, handlerName, jsonParams) {
  var p = JSON.parse(jsonParams);
  return JSON.stringify({ text: 'seen', metadata: { name: p.name, title: p.title, sessionId: p.sessionId,
    keys: Object.keys(p).sort().join(','), sidGiven: sid.length > 0, handler: handlerName } });
}
`);
writeJson(join(bundle, 'Tools', 'whoami.json'), tool('whoami',
  { toolType: 'ScriptTool', execHandler: 'whoami', execMethod: 'toolEntry', scriptName: whoamiPath, title: 'Who am I' },
  { name: { type: 'string', description: '' }, title: { type: 'string', description: '' },
    sessionId: { type: 'string', description: '' } }));
writeFileSync(join(bundle, 'Tools', 'IGNORED.JSON'), '{"not": "read"}');

try {
  // ---- 1. a running server ----
  const port = await freeLowPort();
  const runEnv = env('run');
  // The file tools and the "file" resource use the work folder.
  const granted = await run(kelvara, ['access', 'grant', 'folder', work], runEnv);
  check('kelvara access grants the work folder', () => assert.equal(granted.code, 0, granted.stderr));
  const server = serve(kelvara, ['--import-builtin', '--import', bundle, '--port', String(port)], runEnv);
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr + server.stdout));

  if (state === 'running') {
    const results = await scenario(server.target(port), [
      { op: 'initialize' },
      { op: 'listTools' },
      { op: 'callTool', name: 'read_notes', arguments: { file_path: notesPath } },
      { op: 'callTool', name: 'write_file', arguments: { file_path: ` ${notesPath}`, content: 'rewritten — once\n' } },
      { op: 'callTool', name: 'list_files', arguments: { project_path: work, recursive: false, extensions: ['TXT', 'backup'], sort: 'size' } },
      { op: 'callTool', name: 'list_calendars', arguments: {} },
      { op: 'callTool', name: 'text_statistics', arguments: { text: 'One two two. Three!' } },
      { op: 'readResource', uri: pathToFileURL(notesPath).href },
      { op: 'getPrompt', name: 'greeting', arguments: { who: 'Ada' } },
      { op: 'callTool', name: 'whoami', arguments: { name: 'Ada', title: 'Countess', sessionId: 'chosen-by-client' } },
    ]);
    const [init, list, read, written, listed, calendars, stats, resource, prompt, whoami] = results;
    // The SDK keeps only the members it knows; the execution fields are read off the wire.
    const wire = await (await fetch(`http://127.0.0.1:${port}/mcp`, {
      method: 'POST',
      headers: { 'content-type': 'application/json', accept: 'application/json, text/event-stream', ...server.target(port).headers },
      body: JSON.stringify({ jsonrpc: '2.0', id: 7, method: 'tools/list', params: {} }),
    })).json();

    check('initialize names the server as its stored Server Name', () => {
      assert.equal(init.result.serverInfo.name, 'tamsel_kelvara');
      assert.equal(init.result.instructions, 'Kelvara - Model Context Protocol Server');
    });
    check('the listing holds the bundle and the built-in tools with their execution fields', () => {
      const names = list.result.tools.map((t) => t.name).sort();
      assert.deepEqual(names, ['create_contact', 'create_event', 'create_reminder', 'delete_contact', 'delete_event',
        'delete_reminder', 'fetch_json', 'git_log', 'list_calendars', 'list_contacts', 'list_events', 'list_files',
        'list_reminder_lists', 'list_reminders', 'notes', 'read_file', 'read_notes', 'system_info', 'text_statistics',
        'text_stats_plugin', 'update_contact', 'update_event', 'update_reminder', 'whoami', 'write_file']);
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
    check('a built-in file tool writes the file and keeps the old text as ".backup"', () => {
      assert.equal(written.result.content[0].text, 'File saved successfully');
      assert.deepEqual(written.result.structuredContent, {
        success: true, file_path: notesPath, message: 'File saved successfully', bytes_written: 19,
      });
      assert.equal(readFileSync(notesPath, 'utf8'), 'rewritten — once\n');
      assert.equal(readFileSync(`${notesPath}.backup`, 'utf8'), 'Kelvara end-to-end notes\nsecond line\n');
    });
    check('a built-in file tool lists the folder, filtered and sorted by size', () => {
      const s = listed.result.structuredContent;
      assert.equal(s.success, true);
      assert.equal(s.project_path, work);
      assert.equal(s.directories, 1);
      assert.equal(s.total_files, 2);
      assert.deepEqual(s.files.map((f) => [f.relative_path, f.size]), [['notes.txt', 19], ['notes.txt.backup', 37]]);
      assert.equal(s.files[0].path, notesPath);
      assert.equal(s.files[0].modified, s.files[0].last_modified);
      assert.match(s.files[0].modified, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$/);
      assert.equal(listed.result.content[0].text.split('\n')[0],
        `${notesPath}, notes.txt, notes.txt, 19, ${s.files[0].modified}, ${s.files[0].modified}`);
    });
    check('a calendar tool without access gives its refusal with the output schema\'s neutral values', () => {
      const s = calendars.result.structuredContent;
      assert.equal(s.success, false);
      assert.equal(s.error, 'Calendar access denied.');
      assert.equal(s.count, 0);
      assert.deepEqual(s.calendars, []);
      assert.equal(s.writable, false);
      assert.equal(s.source, '');
      assert.match(calendars.result.content[0].text, /^Current date\/time context: .*\nCalendar access denied\.\n\n```json\n/);
    });
    check('the built-in script tool runs', () => {
      const s = stats.result.structuredContent;
      assert.equal(s.success, true);
      assert.equal(s.words, 4);
      assert.equal(s.sentences, 2);
      assert.deepEqual(s.top_words[0], { word: 'two', count: 2 });
    });
    check('a script tool gets parameters called name, title and sessionId as the client sent them', () => {
      const s = whoami.result.structuredContent;
      assert.equal(s.success, true, JSON.stringify(whoami.result));
      assert.equal(s.name, 'Ada');
      assert.equal(s.title, 'Countess');
      assert.equal(s.sessionId, 'chosen-by-client');
      assert.equal(s.keys, 'name,sessionId,title');
      assert.equal(s.sidGiven, true);
      assert.equal(s.handler, 'whoami');
    });
    check('a "file" resource gives the file text', () => {
      const [content] = resource.result.contents;
      assert.equal(content.mimeType, 'text/plain');
      assert.equal(content.text, 'rewritten — once\n');
    });
    check('a prompt renders its template with the arguments', () => {
      assert.equal(prompt.result.messages[0].content.text, 'Hello Ada');
    });
    check('a failed call is marked as an error for the client', () => {
      assert.equal(calendars.result.isError, true);
      assert.notEqual(read.result.isError, true);
    });
    check('initialize advertises only what the server answers', () => {
      assert.deepEqual(init.result.capabilities.resources, { listChanged: true, subscribe: true });
    });

    const lenient = await runScenario(server.target(port), [
      { op: 'callToolWithoutArguments', name: 'system_info' },
      { op: 'getPrompt', name: 'greeting', arguments: {} },
    ]);
    check('a tool without arguments runs, and a missing required prompt argument is named', () => {
      const [info, missing] = lenient.results;
      assert.equal(info.result?.structuredContent?.success, true, JSON.stringify(info));
      assert.match(missing.error, /Missing required argument 'who' for prompt 'greeting'/);
    });

    // node:http sends the headers as given, as a browser or a rebinding page would.
    const rpc = (headers) => new Promise((resolve, reject) => {
      const body = JSON.stringify({ jsonrpc: '2.0', id: 9, method: 'tools/call', params: { name: 'write_file', arguments: { file_path: notesPath, content: 'pwned' } } });
      const request = httpRequest({ host: '127.0.0.1', port, path: '/mcp', method: 'POST', headers: { 'content-type': 'application/json', ...headers } },
        (response) => { response.resume(); response.on('end', () => resolve({ status: response.statusCode })); });
      request.on('error', reject);
      request.end(body);
    });
    const fromPage = await rpc({ origin: 'http://evil.example', ...server.target(port).headers });
    const rebound = await rpc({ host: 'evil.example', ...server.target(port).headers });
    const anotherProgram = await rpc({});
    check('a web page of another origin, or a rebound host name, is refused and nothing runs', () => {
      assert.equal(fromPage.status, 403);
      assert.equal(rebound.status, 403);
      assert.equal(readFileSync(notesPath, 'utf8'), 'rewritten — once\n');
    });
    check('on loopback too, a caller without the token is refused and nothing runs', () => {
      assert.ok(server.token, `no token in: ${server.stderr}`);
      assert.equal(anotherProgram.status, 401);
      assert.equal(readFileSync(notesPath, 'utf8'), 'rewritten — once\n');
    });
  }

  // A second serve on the same store is refused before it imports or exports anything.
  const storeFiles = () => readdirSync(join(runEnv.XDG_DATA_HOME, 'Kelvara'), { recursive: true }).sort();
  const before = storeFiles();
  const second = serve(kelvara, ['--import-builtin', '--port', String(await freeLowPort())], runEnv);
  const secondEnd = await withTimeout(second.exited, 30000, 'a second kelvara serve on the same store');
  check('a second kelvara serve on a busy store is refused and changes nothing', () => {
    assert.equal(secondEnd.code, 1);
    assert.match(second.stderr, new RegExp(`could not be opened: it is in use by process ${server.child.pid}$`, 'm'));
    assert.deepEqual(storeFiles(), before);
  });

  const { code, signal } = await stop(server);
  check('SIGTERM stops kelvara serve with exit code 0', () => assert.equal(code, 0, `exit ${code} signal ${signal}\n${server.stderr}`));
  check('status words and log lines go to standard output', () => {
    const lines = server.stdout.split('\n');
    for (const status of ['Starting MCP Server...', 'Exporting configurations...', 'Creating server...',
      'Starting server...', 'MCP Server running', 'Stopping MCP Server...', 'MCP Server stopped']) {
      assert.ok(lines.includes(status), `missing status line ${status}`);
    }
    assert.ok(lines.some((l) => /^\d\d:\d\d:\d\d\.\d{3} \[I\] Executing tool: read_notes$/.test(l)), 'no log line of the tool call');
    assert.ok(lines.some((l) => /^Import complete — 3 tools, 1 resources, 1 prompts imported\./.test(l)), 'no import summary');
  });

  // ---- 2. a port that is taken ----
  const blocker = createServer();
  const takenPort = await freeLowPort();
  await new Promise((resolve) => blocker.listen(takenPort, '127.0.0.1', resolve));
  const refused = serve(kelvara, ['--port', String(takenPort)], env('taken'));
  const refusedEnd = await withTimeout(refused.exited, 30000, 'kelvara serve on a taken port');
  blocker.close();
  check('a taken port ends with exit code 1 and the failure text', () => {
    assert.equal(refusedEnd.code, 1);
    assert.match(refused.stderr, new RegExp(`^Failed to start MCP Server: Failed to start MCP server: Failed to bind socket to port ${takenPort}: Address already in use$`, 'm'));
  });

  // ---- 3. a record that cannot be exported ----
  const badBundle = join(work, 'bad-bundle');
  writeJson(join(badBundle, 'Tools', 'nameless.json'), tool('nameless',
    { execHandler: 'FileAccessHandler', execMethod: 'readFile' }, { '': { type: 'string', description: 'no name' } }));
  const badEnv = env('bad');
  // --listen-all alone (no new port) must still be saved; the failed export means no bind.
  const bad = serve(kelvara, ['--import', badBundle, '--listen-all'], badEnv);
  const badEnd = await withTimeout(bad.exited, 30000, 'kelvara serve with an unexportable tool');
  check('an export failure keeps the server from starting', () => {
    assert.equal(badEnd.code, 1);
    assert.match(bad.stderr, /Failed to start MCP Server: .*MCPError -32605: Unable to save server configuration\)$/m);
    assert.match(bad.stderr, /^Failed to export tool 'nameless': Invalid configuration: Parameter input schema name missing\.$/m);
    assert.match(bad.stdout, /Failed to export tool 'nameless': Invalid configuration: Parameter input schema name missing\./);
  });
  check('the start saved --listen-all before the export', () => {
    const settings = readFileSync(join(badEnv.XDG_CONFIG_HOME, 'Kelvara', 'Kelvara.conf'), 'utf8');
    assert.match(settings, /^mcp\.server\.listen\.all=true$/m);
  });

  // ---- 4. bad usage ----
  const usage = serve(kelvara, ['--port', '70000'], env('usage'));
  const usageEnd = await withTimeout(usage.exited, 30000, 'kelvara serve with a bad port');
  check('a port outside the stored range is refused', () => {
    assert.equal(usageEnd.code, 2);
    assert.match(usage.stderr, /Invalid port number\./);
  });

  // ---- 5. all interfaces, on a port the system picks ----
  const open = serve(kelvara, ['--port', '0', '--listen-all', '--allow-origin', 'https://app.example'], env('open'));
  const openState = await withTimeout(open.ready, 30000, 'kelvara serve --listen-all to start');
  // The address and the token follow the status line, on their own streams.
  for (let waited = 0; waited < 10000 && !/^Clients must send/m.test(open.stderr) && openState === 'running'; waited += 20)
    await new Promise((resolve) => setTimeout(resolve, 20));
  // The address printed is one a client can use (this machine's), never 0.0.0.0.
  const served = /^Serving on http:\/\/(\d+\.\d+\.\d+\.\d+):(\d+)\/ /m.exec(open.stdout);
  check('--port 0 prints the port it really listens on, at an address clients reach', () => {
    assert.equal(openState, 'running', open.stderr);
    assert.ok(served, open.stdout);
    assert.notEqual(served[1], '0.0.0.0');
    assert.ok(Number(served[2]) > 0, served[2]);
  });
  const openHost = served?.[1];
  const openPort = Number(served?.[2]);
  const token = /^Clients must send the header: Authorization: Bearer (\S+)$/m.exec(open.stderr)?.[1];
  if (openState === 'running' && token) {
    const configured = JSON.parse(/^Client configuration: (.*)$/m.exec(open.stderr)?.[1] ?? '{}');
    check('the client configuration printed names the same address and the token', () =>
      assert.deepEqual(configured, { mcpServers: { kelvara: {
        type: 'http', url: `http://${openHost}:${openPort}/mcp`, headers: { Authorization: `Bearer ${token}` } } } }));
    const target = { url: `http://${openHost}:${openPort}/mcp`, headers: { authorization: `Bearer ${token}` } };
    const withToken = await runScenario(target, [{ op: 'ping' }]);
    const withoutToken = await runScenario(`http://127.0.0.1:${openPort}/mcp`, [{ op: 'ping' }]);
    const allowedPage = await runScenario({ ...target, headers: { ...target.headers, origin: 'https://app.example' } }, [{ op: 'ping' }]);
    check('on all interfaces the token printed on standard error is required', () => {
      assert.ok(!('error' in withToken.results[0]), withToken.results[0].error);
      assert.match(withoutToken.results[0].error, /Unauthorized: a valid bearer token is required/);
      assert.ok(!('error' in allowedPage.results[0]), allowedPage.results[0].error);
      assert.ok(!open.stdout.includes(token), 'the token must not reach standard output or the log');
    });
  } else {
    check('on all interfaces the token printed on standard error is required', () => assert.fail(`no token in: ${open.stderr}`));
  }
  await stop(open);

  // ---- 6. a script that never returns ----
  const loopBundle = join(work, 'loop-bundle');
  writeJson(join(loopBundle, 'Tools', 'spin.json'), tool('spin',
    { toolType: 'ScriptTool', execHandler: 'spin', execMethod: 'toolEntry', scriptName: join(loopBundle, 'Scripts', 'spin.js') }));
  mkdirSync(join(loopBundle, 'Scripts'), { recursive: true });
  // It leaves a child running in the background first, which must not outlive the server.
  const childPidFile = join(loopBundle, 'child.pid');
  writeFileSync(join(loopBundle, 'Scripts', 'spin.js'),
    `function toolEntry() { Kelvara.shell("/bin/sleep 120 >/dev/null 2>&1 & echo $! > '${childPidFile}'"); while (true) {} }\n`);
  const loopEnv = env('loop');
  // No time limit: only the stop can end the script.
  mkdirSync(join(loopEnv.XDG_CONFIG_HOME, 'Kelvara'), { recursive: true });
  writeFileSync(join(loopEnv.XDG_CONFIG_HOME, 'Kelvara', 'Kelvara.conf'), '[General]\nmcp.script.timeLimit=0\n');
  const loopPort = await freeLowPort();
  const looping = serve(kelvara, ['--import', loopBundle, '--port', String(loopPort)], loopEnv);
  if (await withTimeout(looping.ready, 30000, 'kelvara serve with a looping script to start') === 'running') {
    const pending = runScenario(looping.target(loopPort), [{ op: 'callTool', name: 'spin', arguments: {} }]);
    const childPid = () => { try { return Number(readFileSync(childPidFile, 'utf8').trim()); } catch { return 0; } };
    for (let waited = 0; waited < 10000 && !(/Executing tool: spin/.test(looping.stdout) && childPid() > 1); waited += 20)
      await new Promise((resolve) => setTimeout(resolve, 20));
    const child = childPid();
    const stopped = await stop(looping, 'kelvara serve with a running endless script to stop');
    await pending;
    check('SIGTERM ends a script that never returns and the server exits with 0', () => assert.equal(stopped.code, 0, looping.stderr));
    // Gone, or a zombie waiting for a reaper; a number used again by another program is no sleep.
    const gone = (pid) => {
      try { process.kill(pid, 0); } catch (error) { return error.code === 'ESRCH'; }
      try {
        const stat = readFileSync(`/proc/${pid}/stat`, 'utf8');
        return !stat.includes('(sleep)') || stat.slice(stat.lastIndexOf(')') + 2).startsWith('Z');
      } catch { return true; }
    };
    for (let waited = 0; waited < 5000 && child > 1 && !gone(child); waited += 20)
      await new Promise((resolve) => setTimeout(resolve, 20));
    check('the child the script left running ends with the server', () => {
      assert.ok(child > 1, 'the script wrote no child pid');
      assert.ok(gone(child), `process ${child} still runs`);
    });
  } else {
    check('kelvara serve with a looping script starts', () => assert.fail(looping.stderr));
  }
} finally {
  rmSync(work, { recursive: true, force: true });
}

finish();
