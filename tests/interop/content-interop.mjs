#!/usr/bin/env node
// What a tool author writes beyond text, with the official MCP TypeScript SDK client against
// kelvara serve over stdio: an image from a script tool, a call refused by the tool's JSON
// Schema before it runs, a resource template read with its variable, and completions; a
// template and completions served by a script, the built-in read_file giving an image, a prompt
// with an embedded resource and an image, and a subscription to a file that changes.
//
//   node content-interop.mjs PATH/TO/kelvara

import assert from 'node:assert/strict';
import { mkdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { argumentsOrUsage, check, finish, run, sandbox, workDir } from './harness.mjs';

const { runScenario } = await import('./mcp-client.mjs');
const [kelvara] = argumentsOrUsage('content-interop.mjs PATH/TO/kelvara');
const work = workDir('kelvara-content-');
const bundle = join(work, 'bundle');
for (const folder of ['Tools', 'Resources', 'Prompts', 'Scripts', 'items']) mkdirSync(join(bundle, folder), { recursive: true });
const png = 'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==';
writeFileSync(join(bundle, 'Scripts', 'content.js'), `
function toolEntry(sid, handlerName, jsonParams) {
    var given = Tool.parse(jsonParams, {});
    if (handlerName === 'readResource') return JSON.stringify({ text: 'Forecast for ' + given.city });
    if (handlerName === 'complete') return JSON.stringify({ text: JSON.stringify(['Oslo', 'Osaka', 'Rome']) });
    return Tool.dispatch({
        picture: function () { return [Tool.text('A pixel:'), Tool.image('${png}', 'image/png')]; },
        weather: function (params) { return 'Weather in ' + params.unit; }
    }, sid, handlerName, jsonParams);
}
`);
const annotations = { audience: ['user', 'assistant'], lastModified: '2025-06-18T00:00:00.000Z', priority: 0.5 };
const tool = (name, handler, inputSchema, extra = {}) => ({
  name, description: name, execHandler: handler, execMethod: 'toolEntry', pluginName: '', scriptName: 'Scripts/content.js',
  toolType: 'ScriptTool', annotations: { ...annotations, ...extra }, inputSchema, outputSchema: { type: 'object', properties: {} },
});
writeFileSync(join(bundle, 'Tools', 'picture.json'), JSON.stringify(tool('picture', 'picture', { type: 'object', properties: {} },
  { readOnlyHint: true, title: 'Picture' })));
writeFileSync(join(bundle, 'Tools', 'weather.json'), JSON.stringify(tool('weather', 'weather', {
  $schema: 'https://json-schema.org/draft/2020-12/schema', type: 'object',
  properties: { unit: { type: 'string', enum: ['celsius', 'fahrenheit'] } }, required: ['unit'], additionalProperties: false,
})));
writeFileSync(join(bundle, 'Tools', 'read_image.json'), JSON.stringify({
  ...tool('read_image', 'FileAccessHandler', { type: 'object', properties: { file_path: { type: 'string' } } }),
  execMethod: 'readFile', scriptName: '', toolType: 'BuiltinTool',
}));
writeFileSync(join(bundle, 'items', 'pixel.bin'), Buffer.from(png, 'base64'));
writeFileSync(join(bundle, 'Resources', 'forecast.json'), JSON.stringify({
  uri: 'forecast://city/{city}', name: 'forecast', description: 'By script', mimeType: 'text/plain', type: 'template',
  contextTags: '', relatedResources: '', annotations, script: 'Scripts/content.js', valuesScript: 'Scripts/content.js',
}));
writeFileSync(join(bundle, 'items', '7.txt'), 'item seven');
writeFileSync(join(bundle, 'Resources', 'item.json'), JSON.stringify({
  uri: `file://${bundle}/items/{id}.txt`, name: 'item', description: 'One item', mimeType: 'text/plain', type: 'template',
  contextTags: '', relatedResources: '', annotations, values: { id: ['7', '70', '8'] },
}));
writeFileSync(join(bundle, 'Prompts', 'city.json'), JSON.stringify({
  name: 'city', description: 'A city', template: 'Tell me about {{name}}',
  arguments: [{ name: 'name', description: 'The city', required: true, values: ['Paris', 'Parma', 'Lyon'] }],
}));
writeFileSync(join(bundle, 'Prompts', 'review.json'), JSON.stringify({
  name: 'review', description: 'Review a document', template: '',
  arguments: [{ name: 'doc', description: 'The document URI', required: true }],
  messages: [
    { role: 'user', content: { type: 'resource', resource: { uri: '{{doc}}', text: 'Body of {{doc}}', mimeType: 'text/plain' } } },
    { role: 'assistant', content: { type: 'image', data: png, mimeType: 'image/png' } },
    { role: 'user', content: { type: 'text', text: 'Review {{doc}}.' } },
  ],
}));
const watched = join(bundle, 'items', 'watched.txt');
writeFileSync(watched, 'first');
writeFileSync(join(bundle, 'Resources', 'watched.json'), JSON.stringify({
  uri: `file://${watched}`, name: 'watched', description: 'A file that changes', mimeType: 'text/plain', type: 'file',
  contextTags: '', relatedResources: '', annotations,
}));

const env = sandbox(join(work, 'home'));
const granted = await run(kelvara, ['access', 'grant', 'folder', work], env);
check('kelvara access grants the bundle folder', () => assert.equal(granted.code, 0, granted.stderr));
const { results } = await runScenario({ command: kelvara, args: ['serve', '--stdio', '--import', bundle], env }, [
  { op: 'initialize' },
  { op: 'listTools' },
  { op: 'callTool', name: 'picture' },
  { op: 'callTool', name: 'weather', arguments: { unit: 'kelvin' } },
  { op: 'callTool', name: 'weather', arguments: { unit: 'celsius' } },
  { op: 'listResourceTemplates' },
  { op: 'readResource', uri: `file://${bundle}/items/7.txt` },
  { op: 'complete', ref: { type: 'ref/prompt', name: 'city' }, argument: { name: 'name', value: 'pa' } },
  { op: 'complete', ref: { type: 'ref/resource', uri: `file://${bundle}/items/{id}.txt` }, argument: { name: 'id', value: '7' } },
  { op: 'readResource', uri: 'forecast://city/Oslo' },
  { op: 'complete', ref: { type: 'ref/resource', uri: 'forecast://city/{city}' }, argument: { name: 'city', value: 'os' } },
  { op: 'callTool', name: 'read_image', arguments: { file_path: join(bundle, 'items', 'pixel.bin') } },
  { op: 'getPrompt', name: 'review', arguments: { doc: 'doc://a' } },
  { op: 'subscribeResource', uri: `file://${watched}` },
  { op: 'writeFileAndListen', path: watched, text: 'second', uri: `file://${watched}` },
  { op: 'unsubscribeResource', uri: `file://${watched}` },
  // Nothing comes after unsubscribing: the wait runs out.
  { op: 'writeFileAndListen', path: watched, text: 'third', uri: `file://${watched}`, ms: 1500 },
]);
const [init, list, picture, refused, weather, templates, item, cities, ids, forecast, scripted, readImage,
  review, subscribed, heard, unsubscribed, unheard] = results;
check('initialize advertises completions and subscriptions', () => {
  assert.deepEqual(init.result.capabilities.completions, {});
  assert.equal(init.result.capabilities.resources.subscribe, true);
});
check('a prompt gives its messages with the argument filled in', () => {
  assert.deepEqual(review.result.messages, [
    { role: 'user', content: { type: 'resource', resource: { uri: 'doc://a', text: 'Body of doc://a', mimeType: 'text/plain' } } },
    { role: 'assistant', content: { type: 'image', data: png, mimeType: 'image/png' } },
    { role: 'user', content: { type: 'text', text: 'Review doc://a.' } },
  ], JSON.stringify(review));
});
check('a subscribed file that changes is told', () => {
  assert.deepEqual(subscribed.result, {}, JSON.stringify(subscribed));
  assert.deepEqual(heard.result, { heard: true }, JSON.stringify(heard));
});
check('after unsubscribing a change is not told', () => {
  assert.deepEqual(unsubscribed.result, {}, JSON.stringify(unsubscribed));
  assert.deepEqual(unheard.result, { heard: false });
});
check('the tool list keeps the written schema and the hints', () => {
  const byName = Object.fromEntries(list.result.tools.map((t) => [t.name, t]));
  assert.deepEqual(byName.weather.inputSchema.properties.unit.enum, ['celsius', 'fahrenheit']);
  assert.equal(byName.weather.inputSchema.additionalProperties, false);
  assert.equal(byName.picture.annotations.readOnlyHint, true);
  assert.equal(byName.picture.annotations.title, 'Picture');
});
check('a script tool returns text and an image', () => {
  assert.deepEqual(picture.result.content, [{ type: 'text', text: 'A pixel:' }, { type: 'image', data: png, mimeType: 'image/png' }]);
});
check('a call outside the schema is refused with the failing path', () => {
  assert.match(refused.error ?? '', /-32602/);
  assert.match(refused.error, /at \/unit: must be one of \["celsius","fahrenheit"\]/);
});
check('a call inside the schema runs', () => assert.equal(weather.result.content[0].text, 'Weather in celsius'));
check('the templates are listed', () => {
  assert.deepEqual(templates.result.resourceTemplates.map((t) => t.uriTemplate).sort(),
    [`file://${bundle}/items/{id}.txt`, 'forecast://city/{city}'].sort());
});
check('a URI matching the template reads the file it names', () => {
  assert.equal(item.result.contents[0].text, 'item seven', JSON.stringify(item));
});
check('completion offers prompt argument values by prefix', () => assert.deepEqual(cities.result.completion.values, ['Paris', 'Parma']));
check('completion offers template variable values by prefix', () => assert.deepEqual(ids.result.completion.values, ['7', '70']));
check('a script template gets its variables', () => {
  assert.equal(forecast.result.contents[0].text, 'Forecast for Oslo', JSON.stringify(forecast));
});
check('a script offers completion values, filtered by prefix', () => {
  assert.deepEqual(scripted.result.completion.values, ['Oslo', 'Osaka'], JSON.stringify(scripted));
});
check('read_file gives an image file as an image', () => {
  assert.deepEqual(readImage.result.content, [{ type: 'image', data: png, mimeType: 'image/png' }], JSON.stringify(readImage));
});
finish();
