#!/usr/bin/env node
// A command-line MCP client on the official TypeScript SDK, for end-to-end tests.
//
//   node mcp-client.mjs URL SCENARIO
//
// From a script, runScenario(target, steps) takes the URL of an HTTP server, {url, headers}
// for one that wants more headers (a bearer token), or {command, args, env} for a server that
// speaks MCP on its standard input and output.
//
// SCENARIO is JSON text, or @path to a file holding it: an array of steps, each one of
//   {"op": "initialize"}                        connect; the result is what the server said
//   {"op": "listTools"} | {"op": "listResources"} | {"op": "listPrompts"} | {"op": "ping"}
//   {"op": "callTool", "name": "...", "arguments": {...}}
//   {"op": "callToolWithoutArguments", "name": "..."}    params without an "arguments" member
//   {"op": "readResource", "uri": "..."}
//   {"op": "getPrompt", "name": "...", "arguments": {...}}
//   {"op": "listResourceTemplates"} | {"op": "complete", "ref": {...}, "argument": {...}}
//   {"op": "subscribeResource", "uri": "..."} | {"op": "unsubscribeResource", "uri": "..."}
//   {"op": "writeFileAndListen", "path": "...", "text": "...", "uri": "...", "ms": N}
//       writes the file, then waits up to N ms for notifications/resources/updated of the
//       URI caused by the write; the result is {"heard": true|false}
// A step other than "initialize" connects first when not yet connected.
//
// Prints one JSON document: {"results": [{"op", "result"} or {"op", "error"}, ...]}.
// Exits 0 when every step succeeded, 1 when a step failed, 2 on bad usage.

import { readFileSync } from 'node:fs';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { StreamableHTTPClientTransport } from '@modelcontextprotocol/sdk/client/streamableHttp.js';
import { ResourceUpdatedNotificationSchema } from '@modelcontextprotocol/sdk/types.js';
import { writeFileSync } from 'node:fs';

function usage(message) {
  process.stderr.write(`mcp-client: ${message}\nusage: node mcp-client.mjs URL SCENARIO|@FILE\n`);
  process.exit(2);
}

function transportFor(target) {
  if (typeof target === 'string') return new StreamableHTTPClientTransport(new URL(target));
  if (target.url) return new StreamableHTTPClientTransport(new URL(target.url), { requestInit: { headers: target.headers } });
  // The server's standard error is collected, not mixed into the test's output.
  const transport = new StdioClientTransport({ command: target.command, args: target.args ?? [], env: target.env, stderr: 'pipe' });
  target.stderr = '';
  transport.stderr?.on('data', (chunk) => { target.stderr += chunk; });
  return transport;
}

export async function runScenario(target, steps) {
  const client = new Client({ name: 'kelvara-interop', version: '1.0.0' });
  const updated = [];
  client.setNotificationHandler(ResourceUpdatedNotificationSchema, (notification) => { updated.push(notification.params.uri); });
  const listen = async (uri, ms) => {
    for (const end = Date.now() + ms; Date.now() < end; await new Promise((resolve) => setTimeout(resolve, 20))) {
      const at = updated.indexOf(uri);
      if (at >= 0) {
        updated.splice(at, 1);
        return true;
      }
    }
    return false;
  };
  const ops = {
    initialize: async () => ({
      serverInfo: client.getServerVersion(),
      capabilities: client.getServerCapabilities(),
      instructions: client.getInstructions(),
    }),
    listTools: () => client.listTools(),
    listResources: () => client.listResources(),
    listPrompts: () => client.listPrompts(),
    ping: () => client.ping(),
    callTool: (step) => client.callTool({ name: step.name, arguments: step.arguments ?? {} }),
    callToolWithoutArguments: (step) => client.callTool({ name: step.name }),
    readResource: (step) => client.readResource({ uri: step.uri }),
    getPrompt: (step) => client.getPrompt({ name: step.name, arguments: step.arguments ?? {} }),
    listResourceTemplates: () => client.listResourceTemplates(),
    complete: (step) => client.complete({ ref: step.ref, argument: step.argument }),
    subscribeResource: (step) => client.subscribeResource({ uri: step.uri }),
    unsubscribeResource: (step) => client.unsubscribeResource({ uri: step.uri }),
    writeFileAndListen: async (step) => {
      // Only what the write causes counts: a write may be told more than once (truncation,
      // then the data), and the SDK handles a notification a turn after the answer before it.
      await new Promise((resolve) => setTimeout(resolve, 100));
      updated.length = 0;
      writeFileSync(step.path, step.text);
      return { heard: await listen(step.uri, step.ms ?? 10000) };
    },
  };
  let connected = false;
  const results = [];
  for (const step of steps) {
    try {
      if (!Object.hasOwn(ops, step.op)) throw new Error(`unknown op '${step.op}'`);
      if (!connected) {
        await client.connect(transportFor(target));
        connected = true;
      }
      results.push({ op: step.op, result: await ops[step.op](step) });
    } catch (error) {
      results.push({ op: step.op, error: String(error?.message ?? error) });
    }
  }
  if (connected) await client.close();
  return { results };
}

const isMain = process.argv[1] && import.meta.url === new URL(`file://${process.argv[1]}`).href;
if (isMain) {
  const [url, scenarioArg] = process.argv.slice(2);
  if (!url || !scenarioArg) usage('missing arguments');
  let steps;
  try {
    const text = scenarioArg.startsWith('@') ? readFileSync(scenarioArg.slice(1), 'utf8') : scenarioArg;
    steps = JSON.parse(text);
  } catch (error) {
    usage(`cannot read the scenario: ${error.message}`);
  }
  if (!Array.isArray(steps)) usage('the scenario must be a JSON array of steps');
  // A server that asks for its bearer token gets it from the environment.
  const token = process.env.MCP_BEARER_TOKEN;
  const output = await runScenario(token ? { url, headers: { Authorization: `Bearer ${token}` } } : url, steps);
  process.stdout.write(JSON.stringify(output, null, 2) + '\n');
  process.exit(output.results.every((r) => !('error' in r)) ? 0 : 1);
}
