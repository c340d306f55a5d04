#!/usr/bin/env node
// End to end: script tools using the host object `Kelvara`, served by `kelvara serve` and
// called by the official MCP TypeScript SDK client.
//
//   node hostapi-e2e.mjs PATH/TO/kelvara
//
// One run of kelvara in fresh XDG folders, with the built-in bundle and a test bundle, and a
// local HTTP peer on 127.0.0.1. The checks:
//  - the built-in fetch_json example fetches JSON from the peer over Kelvara.httpGet;
//  - a script tool of the test bundle runs command lines over Kelvara.shell;
//  - the built-in system_info example runs uname through the shell;
//  - a script tool reads a resource's configuration from the store over Kelvara.resourceConfig;
//  - a "link" resource is fetched from the peer over HTTP;
//  - the built-in notes example writes, lists and reads files;
//  - the log lines of the host API reach standard output.

import assert from 'node:assert/strict';
import { mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { createServer as createHttpServer } from 'node:http';
import { join } from 'node:path';
import {
  argumentsOrUsage, check, finish, freeLowPort, run, sandbox, scenario, serve, stop, withTimeout, workDir, writeJson,
} from '../interop/harness.mjs';

const [kelvara] = argumentsOrUsage('hostapi-e2e.mjs PATH/TO/kelvara');
const work = workDir('kelvara-hostapi-e2e-');

// The local HTTP peer of the script tools and of the "link" resource.
const peer = createHttpServer((request, response) => {
  const url = new URL(request.url, 'http://127.0.0.1');
  if (url.pathname === '/data.json') {
    response.writeHead(200, { 'Content-Type': 'application/json' });
    response.end(JSON.stringify({ city: 'Lund', temperatures: [3, 5, 4], query: Object.fromEntries(url.searchParams) }));
  } else if (url.pathname === '/page.txt') {
    response.writeHead(200, { 'Content-Type': 'text/plain; charset=utf-8' });
    response.end('Linked text über HTTP\n');
  } else {
    response.writeHead(404, { 'Content-Type': 'text/plain' });
    response.end('not here');
  }
});
await new Promise((resolve) => peer.listen(0, '127.0.0.1', resolve));
const peerBase = `http://127.0.0.1:${peer.address().port}`;

// The test bundle: a shell tool, a tool that reads the store, and a "link" resource.
const annotations = { audience: ['user', 'assistant'], lastModified: '2025-06-18T00:00:00.000Z', priority: 0.9 };
const bundle = join(work, 'bundle');
function scriptTool(name, handler, script, inputProperties, outputProperties) {
  writeJson(join(bundle, 'Tools', `${name}.json`), {
    name, description: `The tool ${name}`, execHandler: handler, execMethod: 'toolEntry', pluginName: '',
    scriptName: `Scripts/${name}.js`, toolType: 'ScriptTool', annotations,
    inputSchema: { type: 'object', properties: inputProperties },
    outputSchema: { type: 'object', properties: outputProperties },
  });
  mkdirSync(join(bundle, 'Scripts'), { recursive: true });
  writeFileSync(join(bundle, 'Scripts', `${name}.js`), script);
}
scriptTool('run_shell', 'runShell', `
function toolEntry(sid, handlerName, jsonParams) {
    var params = JSON.parse(jsonParams);
    stdOut = ['stale'];
    var ok = Kelvara.shell(params.command);
    return JSON.stringify({ text: stdOut.join('|'), success: ok, metadata: { out: stdOut, err: stdErr } });
}
`, { command: { type: 'string', description: 'A command line for /bin/sh' } },
{ success: { type: 'boolean', description: '' }, out: { type: 'array', description: '' } });
scriptTool('resource_info', 'resourceInfo', `
function toolEntry(sid, handlerName, jsonParams) {
    var params = JSON.parse(jsonParams);
    var text = Kelvara.resourceConfig(params.match);
    if (text === '') {
        return JSON.stringify({ text: 'none', success: false });
    }
    var config = JSON.parse(text);
    return JSON.stringify({ text: text, metadata: { uri: config.uri, type: config.type } });
}
`, { match: { type: 'string', description: 'Part of a resource name' } },
{ uri: { type: 'string', description: '' } });
writeJson(join(bundle, 'Resources', 'linked.json'), {
  uri: `${peerBase}/page.txt`, name: 'Linked page', description: 'A page on the local peer', mimeType: 'text/plain',
  type: 'link', contextTags: '', relatedResources: '', annotations,
});

try {
  // The local peer is reached directly, whatever proxy the environment names.
  const env = sandbox(join(work, 'sandbox'), { no_proxy: '127.0.0.1,localhost', NO_PROXY: '127.0.0.1,localhost' });
  const notesFolder = join(work, 'notes');
  // The notes example writes below the work folder.
  const granted = await run(kelvara, ['access', 'grant', 'folder', work], env);
  check('kelvara access grants the work folder', () => assert.equal(granted.code, 0, granted.stderr));
  const port = await freeLowPort();
  const server = serve(kelvara, ['--import-builtin', '--import', bundle, '--port', String(port), '--log-level', 'debug'], env);
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr + server.stdout));

  if (state === 'running') {
    const results = await scenario(server.target(port), [
      { op: 'callTool', name: 'fetch_json', arguments: { url: `${peerBase}/data.json`, query: { unit: 'C' } } },
      { op: 'callTool', name: 'fetch_json', arguments: { url: `${peerBase}/data.json`, pick: 'temperatures.1' } },
      { op: 'callTool', name: 'fetch_json', arguments: { url: `${peerBase}/gone` } },
      { op: 'callTool', name: 'run_shell', arguments: { command: 'echo "  first  "; echo; echo second; echo oops >&2' } },
      { op: 'callTool', name: 'run_shell', arguments: { command: 'exit 4' } },
      { op: 'callTool', name: 'system_info', arguments: {} },
      { op: 'callTool', name: 'resource_info', arguments: { match: 'Linked' } },
      { op: 'readResource', uri: `${peerBase}/page.txt` },
      { op: 'callTool', name: 'notes', arguments: { action: 'add', note: 'First', text: 'über alles', folder: notesFolder } },
      { op: 'callTool', name: 'notes', arguments: { action: 'list', folder: notesFolder } },
      { op: 'callTool', name: 'notes', arguments: { action: 'read', note: 'First', folder: notesFolder } },
    ]);
    const [fetched, picked, gone, shelled, shellFailed, system, resourceInfo, linked, added, listed, read] = results;

    check('fetch_json gets JSON from the local peer over Kelvara.httpGet', () => {
      const s = fetched.result.structuredContent;
      assert.equal(s.success, true, fetched.result.content[0].text);
      assert.equal(s.status_code, 200);
      assert.equal(s.content_type, 'application/json');
      assert.equal(s.kind, 'object');
      assert.deepEqual(s.keys, ['city', 'temperatures', 'query']);
      assert.match(fetched.result.content[0].text, /^HTTP 200 from http:\/\/127\.0\.0\.1:\d+\/data\.json\n/);
      // The query object reached the peer as query items.
      assert.match(fetched.result.content[0].text, /query:\n\s+object with 1 member\n\s+unit: "C"/);
      assert.equal(picked.result.content[0].text, '5');
    });
    check('fetch_json reports an HTTP error status as a failure', () => {
      assert.equal(gone.result.structuredContent.success, false);
      assert.equal(gone.result.structuredContent.status_code, 404);
    });
    check('a script tool runs command lines over Kelvara.shell', () => {
      const s = shelled.result.structuredContent;
      assert.equal(s.success, true);
      assert.deepEqual(s.out, ['first', 'second']);
      assert.deepEqual(s.err, ['oops']);
      assert.equal(shelled.result.content[0].text, 'first|second');
      // A failing command replaces stdOut too, and gives false.
      assert.equal(shellFailed.result.structuredContent.success, false);
      assert.deepEqual(shellFailed.result.structuredContent.out, []);
    });
    check('system_info runs uname through the shell', () => {
      const s = system.result.structuredContent;
      assert.equal(s.success, true, system.result.content[0].text);
      assert.match(s.kernel, /^Linux \S+ \S+$/);
    });
    check('a script tool reads a resource from the store by part of its name', () => {
      const s = resourceInfo.result.structuredContent;
      assert.equal(s.success, true, resourceInfo.result.content[0].text);
      assert.equal(s.uri, `${peerBase}/page.txt`);
      assert.equal(s.type, 'link');
    });
    check('a "link" resource gives the body fetched over HTTP', () => {
      const [content] = linked.result.contents;
      assert.equal(content.mimeType, 'text/plain');
      assert.equal(content.text, 'Linked text über HTTP\n');
    });
    check('the notes example writes, lists and reads files through the host object', () => {
      assert.equal(added.result.structuredContent.success, true, added.result.content[0].text);
      assert.equal(added.result.structuredContent.path, join(notesFolder, 'First.txt'));
      assert.deepEqual(listed.result.structuredContent.notes, ['First']);
      assert.equal(read.result.content[0].text, 'über alles');
    });
  }

  const { code, signal } = await stop(server);
  check('SIGTERM stops kelvara serve with exit code 0', () => assert.equal(code, 0, `exit ${code} signal ${signal}\n${server.stderr}`));
  check('the host API writes its log lines', () => {
    const lines = server.stdout.split('\n');
    const logged = (pattern) => lines.some((l) => pattern.test(l.replace(/^\d\d:\d\d:\d\d\.\d{3} /, '')));
    assert.ok(logged(/^\[W\] \[Script\] process\(\) \/bin\/sh exited 4, stdout=0 lines, stderr=0 lines$/),
      'no warning line of the failed command');
    assert.ok(logged(/^\[D\] \[Script\] Injected stdOut\[2\] and stdErr\[1\] into JS context$/), 'no injection line');
  });
} finally {
  peer.close();
  rmSync(work, { recursive: true, force: true });
}

finish();
