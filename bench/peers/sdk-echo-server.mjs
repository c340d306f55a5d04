#!/usr/bin/env node
// The reference peer for the engine benchmark: a minimal stateless MCP server written with
// the official TypeScript SDK, serving the same `echo` tool over Streamable HTTP with JSON
// responses. Each request gets its own server and transport, as the SDK's stateless
// pattern prescribes.
//
//   node sdk-echo-server.mjs PORT

import { createServer } from 'node:http';
import { McpServer } from '@modelcontextprotocol/sdk/server/mcp.js';
import { StreamableHTTPServerTransport } from '@modelcontextprotocol/sdk/server/streamableHttp.js';
import { z } from 'zod';

const port = Number(process.argv[2]);
if (!Number.isInteger(port) || port < 1 || port > 65535) {
  console.error('usage: node sdk-echo-server.mjs PORT');
  process.exit(2);
}

function makeServer() {
  const server = new McpServer({ name: 'sdk-echo', version: '1.0.0' });
  server.registerTool(
    'echo',
    { description: 'Returns the text it is given.', inputSchema: { text: z.string() } },
    async ({ text }) => ({ content: [{ type: 'text', text }], structuredContent: { text } }),
  );
  return server;
}

const http = createServer(async (req, res) => {
  if (req.method !== 'POST') {
    res.writeHead(405, { 'content-type': 'application/json' }).end('{"error":"Method not allowed"}');
    return;
  }
  const chunks = [];
  for await (const chunk of req) chunks.push(chunk);
  let body;
  try {
    body = JSON.parse(Buffer.concat(chunks).toString('utf8'));
  } catch {
    res.writeHead(400).end();
    return;
  }
  const server = makeServer();
  const transport = new StreamableHTTPServerTransport({ sessionIdGenerator: undefined, enableJsonResponse: true });
  res.on('close', () => {
    transport.close();
    server.close();
  });
  await server.connect(transport);
  await transport.handleRequest(req, res, body);
});

http.listen(port, '127.0.0.1', () => console.log(`sdk-echo-server listening on 127.0.0.1:${port}`));
for (const signal of ['SIGINT', 'SIGTERM']) process.on(signal, () => http.close(() => process.exit(0)));
