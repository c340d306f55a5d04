#!/usr/bin/env node
// End to end: the TextStats sample plug-in registered with `kelvara plugin add`, enabled for
// a run with `kelvara serve --enable-plugin`, and called as a "CustomTool" by the official
// MCP TypeScript SDK client.
//
//   node plugin-e2e.mjs PATH/TO/kelvara PATH/TO/TextStats.so PATH/TO/TextStats.bundle
//
// Every sandbox gets fresh XDG folders in a temporary directory.

import assert from 'node:assert/strict';
import { readFileSync, rmSync } from 'node:fs';
import { join, resolve } from 'node:path';
import {
  argumentsOrUsage, check, finish, freeLowPort, run as runCommand, sandbox, scenario, serve as serveCommand, stop,
  withTimeout, workDir,
} from '../interop/harness.mjs';

const [kelvara, library, bundle] = argumentsOrUsage(
  'plugin-e2e.mjs PATH/TO/kelvara PATH/TO/TextStats.so PATH/TO/TextStats.bundle', 3).map((p) => resolve(p));
const work = workDir('kelvara-plugin-e2e-');
const run = (args, env, input) => runCommand(kelvara, args, env, input);
const serve = (args, env) => serveCommand(kelvara, args, env);

try {
  const env = sandbox(join(work, 'run'));

  // ---- registration on the terminal ----
  const declined = await run(['plugin', 'add', library], env, 'n\n');
  check('a declined registration registers nothing', () => {
    assert.equal(declined.code, 1, declined.stderr);
    assert.match(declined.stdout, /Review the plugin details before registering/);
    assert.match(declined.stdout, /^ {2}Name: +TextStats$/m);
    assert.match(declined.stdout, /^ {2}Entry point: +textStatsEntry$/m);
    assert.match(declined.stdout, /runs inside Kelvara's own process with your user rights/);
    assert.match(declined.stdout, /Approve & Register\? \[y\/N\]/);
  });
  const emptyList = await run(['plugin', 'list'], env);
  check('the list is still empty', () => assert.equal(emptyList.stdout.trim(), 'No plugins registered yet.'));

  const added = await run(['plugin', 'add', library], env, 'y\n');
  check('a confirmed registration registers the plug-in, disabled', () => {
    assert.equal(added.code, 0, added.stderr);
    assert.match(added.stdout, new RegExp(`^Registered plugin: TextStats \\(${library.replace(/[.*+?^${}()|[\]\\]/g, '\\$&')}\\)$`, 'm'));
    assert.match(added.stdout, /It is disabled\./);
  });
  const again = await run(['plugin', 'add', bundle, '--yes'], env);
  check('the same name cannot be registered twice', () => {
    assert.equal(again.code, 1);
    assert.match(again.stderr, /Information: The custom tool plugin TextStats already exist\./);
  });
  const listed = await run(['plugin', 'list'], env);
  check('the list holds the plug-in once', () => assert.equal(listed.stdout, `TextStats\t1.0.0\t${library}\n`));
  check('the stored list is JSON under "RegisteredPlugins"', () => {
    const conf = readFileSync(join(env.XDG_CONFIG_HOME, 'Kelvara', 'Kelvara.conf'), 'utf8');
    assert.match(conf, /^RegisteredPlugins="@ByteArray\(\[\{\\"id\\":/m);
  });

  // ---- a run without the confirmation: the plug-in is registered but not enabled ----
  const port = await freeLowPort();
  const plain = serve(['--import-builtin', '--port', String(port)], env);
  const plainState = await withTimeout(plain.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(plainState, 'running', plain.stderr + plain.stdout));
  if (plainState === 'running') {
    const [disabled] = await scenario(plain.target(port), [
      { op: 'callTool', name: 'text_stats_plugin', arguments: { text: 'Hello' } },
    ]);
    check('without --enable-plugin the call says the plug-in is not enabled', () => {
      const s = disabled.result.structuredContent;
      assert.equal(s.success, false);
      assert.equal(s.error_message, "Requested tool plugin 'TextStats' is not enabled.");
      assert.equal(s.words, 0);
      assert.equal(s.crc32, '');
    });
  }
  const plainEnd = await stop(plain);
  check('the first run stops cleanly', () => assert.equal(plainEnd.code, 0, plain.stderr));

  // ---- a run with the confirmation ----
  const port2 = await freeLowPort();
  const enabled = serve(['--port', String(port2), '--enable-plugin', library], env);
  const state = await withTimeout(enabled.ready, 30000, 'kelvara serve --enable-plugin to start');
  check('kelvara serve --enable-plugin starts and says what it enabled', () => {
    assert.equal(state, 'running', enabled.stderr + enabled.stdout);
    assert.ok(enabled.stdout.split('\n').includes(`Enabled plugin: TextStats (${library})`), enabled.stdout);
  });
  if (state === 'running') {
    const results = await scenario(enabled.target(port2), [
      { op: 'listTools' },
      { op: 'callTool', name: 'text_stats_plugin', arguments: { text: 'Hello wörld\nbye' } },
      { op: 'callTool', name: 'text_stats_plugin', arguments: {} },
    ]);
    const [list, stats, missing] = results;
    check('the listing carries the plug-in tool', () => {
      const tool = list.result.tools.find((t) => t.name === 'text_stats_plugin');
      assert.ok(tool, 'no text_stats_plugin');
      assert.deepEqual(tool.inputSchema.required, ['text']);
    });
    check('the enabled plug-in measures the text', () => {
      assert.deepEqual(stats.result.structuredContent, { characters: 15, words: 3, lines: 2, bytes: 16, crc32: '24aad127' });
      assert.deepEqual(stats.result.content, [{ type: 'text', text: '15 characters, 3 words, 2 lines, 16 bytes, CRC-32 24aad127' }]);
    });
    check("the plug-in's own error comes back as the tool's error", () => {
      const s = missing.result.structuredContent;
      assert.equal(s.success, false);
      assert.equal(s.error_message, "Parameter 'text' must be a string.");
      assert.equal(s.bytes, 0);
    });
  }
  const { code } = await stop(enabled);
  check('SIGTERM stops kelvara serve with exit code 0', () => assert.equal(code, 0, enabled.stderr));
  check('the call is in the log', () => {
    assert.ok(enabled.stdout.split('\n').some((l) => /\[I\] \[PlugIn\] Calling: TextStats, sid:/.test(l)), enabled.stdout);
  });

  // ---- confirmations that cannot be honoured ----
  const fresh = sandbox(join(work, 'fresh'));
  const unregistered = await run(['serve', '--port', String(await freeLowPort()), '--enable-plugin', bundle], fresh);
  check('--enable-plugin of a plug-in that is not registered ends with exit code 1', () => {
    assert.equal(unregistered.code, 1);
    assert.match(unregistered.stderr, /^kelvara serve: the plugin 'TextStats' \(.*TextStats\.bundle\) is not registered;/m);
  });
  const gone = await run(['serve', '--enable-plugin', join(work, 'Gone.so')], env);
  check('--enable-plugin of a missing file names it', () => {
    assert.equal(gone.code, 1);
    assert.match(gone.stderr, /kelvara serve: Plugin file not found: .*Gone\.so/);
  });
  const usage = await run(['serve', '--enable-plugin'], env);
  check('--enable-plugin without a file is bad usage', () => assert.equal(usage.code, 2));
} finally {
  rmSync(work, { recursive: true, force: true });
}

finish();
