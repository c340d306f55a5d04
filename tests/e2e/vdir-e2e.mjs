#!/usr/bin/env node
// End to end with the programs Linux users keep their vdir folders with: khal writes a
// weekly event in Berlin time beside an all-day one, khard writes a card, the official MCP
// SDK client changes them through `kelvara serve`, and khal and khard read them back.
//
//   node vdir-e2e.mjs PATH/TO/kelvara
//
// Without khal or khard (scripts/setup installs both) it says so and passes.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, readdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import {
  argumentsOrUsage, check, finish, freeLowPort, run, sandbox, scenario, serve, stop, withTimeout, workDir,
} from '../interop/harness.mjs';

const [kelvara] = argumentsOrUsage('vdir-e2e.mjs PATH/TO/kelvara');
const installed = (program) => !spawnSync(program, ['--version'], { stdio: 'ignore' }).error;
if (!installed('khal') || !installed('khard')) {
  console.log('khal or khard is not installed: nothing checked');
  process.exit(0);
}

const work = workDir('kelvara-vdir-e2e-');
// Kelvara runs in Berlin time, as khal's configuration says the user does.
const env = sandbox(work, { LANG: 'C.UTF-8', LC_ALL: 'C.UTF-8', HOME: work, TZ: 'Europe/Berlin' });
const calendars = join(work, 'data', 'Kelvara', 'Calendars');
const contacts = join(work, 'data', 'Kelvara', 'Contacts');
const structured = (r) => r.result.structuredContent;

// Each program with its own configuration in the sandbox.
mkdirSync(join(calendars, 'work'), { recursive: true });
mkdirSync(join(contacts, 'people'), { recursive: true });
mkdirSync(join(work, 'config', 'khal'), { recursive: true });
mkdirSync(join(work, 'config', 'khard'), { recursive: true });
writeFileSync(join(work, 'config', 'khal', 'config'), [
  '[calendars]', '[[work]]', `path = ${join(calendars, 'work')}`, 'type = calendar',
  '[locale]', 'timeformat = %H:%M', 'dateformat = %Y-%m-%d', 'longdateformat = %Y-%m-%d',
  'datetimeformat = %Y-%m-%d %H:%M', 'longdatetimeformat = %Y-%m-%d %H:%M',
  'local_timezone = Europe/Berlin', 'default_timezone = Europe/Berlin',
  '[default]', 'default_calendar = work', ''].join('\n'));
writeFileSync(join(work, 'config', 'khard', 'khard.conf'), [
  '[addressbooks]', '[[people]]', `path = ${join(contacts, 'people')}/`,
  '[general]', 'default_action = list', 'editor = /bin/false', 'merge_editor = /bin/false',
  '[vcard]', 'preferred_version = 3.0', ''].join('\n'));

const program = async (name, args) => {
  const result = await run(name, args, env);
  assert.equal(result.code, 0, `${name} ${args.join(' ')}: ${result.stderr}`);
  return result.stdout;
};
const khalList = async (day, span = '1d') => (await program('khal', ['list', '--day-format', '', '--format',
  '{start-time}-{end-time} {title}|{location}|{description}', day, span]))
  .split('\n').map((line) => line.trim()).filter((line) => line !== '');

try {
  await program('khal', ['new', '-a', 'work', '--location', 'Room 4', '-r', 'weekly', '2026-01-05', '09:30', '10:00',
    'Europe/Berlin', 'Stand-up', '::', 'Daily sync notes']);
  await program('khal', ['new', '-a', 'work', '2026-03-10', '2026-03-11', 'Offsite']);
  const card = join(work, 'ada.yaml');
  writeFileSync(card, ['Formatted name : Countess Ada Lovelace', 'Prefix : Countess', 'First name : Ada',
    'Last name : Lovelace', 'Organisation :', '    -', '        - Analytical Engine Society',
    '        - Notes Department', 'Phone :', '    cell : +44 20 7946 0001', '    home, pref : +44 20 7946 0002',
    'Email :', '    work : ada@engine.example', 'Note : Wrote the first program', ''].join('\n'));
  await program('khard', ['new', '-a', 'people', '-i', card]);
  const khardBefore = await program('khard', ['show', '--format', 'yaml', 'Lovelace']);

  const granted = await run(kelvara, ['access', 'grant', 'calendars', 'reminders', 'contacts'], env);
  check('kelvara access grants the three kinds', () => assert.equal(granted.code, 0, granted.stderr));
  const port = await freeLowPort();
  const server = serve(kelvara, ['--import-builtin', '--port', String(port)], env);
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr + server.stdout));
  if (state === 'running') {
    const url = server.target(port);
    const [, listed, people] = await scenario(url, [
      { op: 'initialize' },
      { op: 'callTool', name: 'list_events', arguments: { start_date: '2026-01-01T00:00:00Z', end_date: '2026-01-13T00:00:00Z' } },
      { op: 'callTool', name: 'list_contacts', arguments: {} },
    ]);
    const standup = structured(listed).events[0].event_id.split('@')[0];
    const ada = structured(people).contacts[0];
    const standupFile = join(calendars, 'work', `${standup}.ics`);
    const standupBefore = readFileSync(standupFile, 'utf8');
    const [, , newEvent] = await scenario(url, [
      { op: 'callTool', name: 'update_event', arguments: { event_id: standup, notes: 'Weekly sync notes' } },
      { op: 'callTool', name: 'update_event', arguments: { event_id: `${standup}@20260112T083000Z`,
        start_date: '2026-01-12T10:00:00Z', end_date: '2026-01-12T10:30:00Z' } },
      { op: 'callTool', name: 'create_event', arguments: { title: 'Dentist', calendar_id: 'work',
        start_date: '2026-08-04T08:00:00Z', end_date: '2026-08-04T08:45:00Z', location: 'Main St 1' } },
      { op: 'callTool', name: 'update_contact', arguments: { contact_id: ada.contact_id, note: 'Note G',
        phone_numbers: ['+44 20 7946 0003', '+44 20 7946 0002'] } },
      { op: 'callTool', name: 'create_contact', arguments: { given_name: 'Grace', family_name: 'Hopper',
        organization_name: 'Navy', phone_numbers: ['+1 555 0199'], email_addresses: ['grace@navy.example'] } },
    ]);

    const winter = await khalList('2026-01-05');
    const moved = await khalList('2026-01-12');
    const summer = await khalList('2026-07-06');
    const offsite = await khalList('2026-03-10');
    const dentist = await khalList('2026-08-04');
    check('khal reads the series in Berlin time, the moved occurrence, the whole day and a new event', () => {
      assert.deepEqual(winter, ['09:30-10:00 Stand-up|Room 4|Weekly sync notes']);
      assert.deepEqual(moved, ['11:00-11:30 Stand-up|Room 4|Weekly sync notes']);
      assert.deepEqual(summer, ['09:30-10:00 Stand-up|Room 4|Weekly sync notes']);
      assert.deepEqual(offsite, ['- Offsite||']);
      assert.deepEqual(dentist, ['10:00-10:45 Dentist|Main St 1|']);
    });
    check("the series keeps khal's own lines", () => {
      const after = readFileSync(standupFile, 'utf8');
      for (const line of standupBefore.split('\r\n')) {
        if (!line.startsWith('DTSTAMP') && !line.startsWith('DESCRIPTION')) assert.ok(after.includes(`${line}\r\n`), line);
      }
      assert.deepEqual(readdirSync(join(calendars, 'work')).filter((f) => f.endsWith('.ics')).length, 3);
    });
    check("a new event is written in the user's zone, with its definition", () => {
      const file = readFileSync(join(calendars, 'work', `${structured(newEvent).event.event_id}.ics`), 'utf8');
      assert.match(file, /\r\nDTSTART;TZID=Europe\/Berlin:20260804T100000\r\n/);
      assert.match(file, /\r\nBEGIN:VTIMEZONE\r\nTZID:Europe\/Berlin\r\n/);
    });

    const khardAfter = await program('khard', ['show', '--format', 'yaml', 'Lovelace']);
    const grace = await program('khard', ['show', '--format', 'yaml', 'Hopper']);
    check('khard reads the card as it was plus the update, and the new one', () => {
      assert.equal(khardAfter, khardBefore.replace('Note: Wrote the first program', 'Note: Note G')
        .replace('cell: +44 20 7946 0001', 'cell: +44 20 7946 0003'));
      assert.match(grace, /^Formatted name: Grace Hopper$/m);
      assert.match(grace, /^First name: Grace$/m);
      assert.match(grace, /^Last name: Hopper$/m);
      assert.match(grace, /\+1 555 0199/);
      assert.match(grace, /grace@navy\.example/);
      assert.match(grace, /Navy/);
    });
    const exit = await stop(server);
    check('SIGTERM stops the server with exit code 0', () => assert.equal(exit.code, 0));
  }
} finally {
  finish();
}
