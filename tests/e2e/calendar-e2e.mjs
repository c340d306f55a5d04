#!/usr/bin/env node
// End to end: the calendar, reminder and contact tools of the built-in bundle, driven by
// the official MCP TypeScript SDK client.
//
//   node calendar-e2e.mjs PATH/TO/kelvara
//
// Fresh XDG folders: `kelvara access grant` for the three kinds, then
// `kelvara serve --import-builtin`; an event, a reminder and a contact are created, listed,
// updated and deleted, and the iCalendar and vCard files are checked on disk.

import assert from 'node:assert/strict';
import { existsSync, readdirSync, readFileSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import {
  argumentsOrUsage, check, finish, freeLowPort, run, sandbox, scenario, serve, stop, withTimeout, workDir,
} from '../interop/harness.mjs';

const [kelvara] = argumentsOrUsage('calendar-e2e.mjs PATH/TO/kelvara');
const work = workDir('kelvara-calendar-e2e-');
const env = sandbox(work);
const data = join(work, 'data', 'Kelvara');
const structured = (r) => r.result.structuredContent;

try {
  // Before access is granted every call is refused.
  const granted = await run(kelvara, ['access', 'grant', 'calendars', 'reminders', 'contacts'], env);
  check('kelvara access grants the three kinds', () => {
    assert.equal(granted.code, 0, granted.stderr);
    assert.equal(granted.stdout, 'calendars: granted\nreminders: granted\ncontacts: granted\n');
  });

  const port = await freeLowPort();
  const server = serve(kelvara, ['--import-builtin', '--port', String(port)], env);
  const state = await withTimeout(server.ready, 30000, 'kelvara serve to start');
  check('kelvara serve starts', () => assert.equal(state, 'running', server.stderr + server.stdout));
  if (state === 'running') {
    const url = server.target(port);
    const [, created] = await scenario(url, [
      { op: 'initialize' },
      { op: 'callTool', name: 'create_event', arguments: {
        title: 'Design review', start_date: '2026-12-01T09:00:00Z', end_date: '2026-12-01T10:30:00.000Z',
        location: 'Room 2', notes: 'Bring the drafts, please' } },
    ]);
    const event = structured(created).event;
    check('an event is created in the default calendar and written as iCalendar', () => {
      assert.equal(structured(created).success, true);
      assert.equal(event.title, 'Design review');
      assert.equal(event.start_date, '2026-12-01T09:00:00.000Z');
      assert.equal(event.calendar_title, 'Calendar');
      const file = readFileSync(join(data, 'Calendars', 'calendar', `${event.event_id}.ics`), 'utf8');
      assert.match(file, /BEGIN:VEVENT/);
      assert.match(file, /SUMMARY:Design review/);
      assert.match(created.result.content[0].text, /^Current date\/time context: /);
      assert.equal(statSync(join(data, 'Calendars', 'calendar', `${event.event_id}.ics`)).mode & 0o777, 0o600);
      assert.equal(statSync(join(data, 'Calendars', 'calendar')).mode & 0o777, 0o700);
    });

    const [listed, updated, deleted, after] = await scenario(url, [
      { op: 'callTool', name: 'list_events', arguments: { start_date: '2026-12-01T10:00:00Z', end_date: '2026-12-02T00:00:00Z' } },
      { op: 'callTool', name: 'update_event', arguments: { event_id: event.event_id, title: 'Design review (moved)',
        start_date: '2026-12-02T09:00:00Z', end_date: '2026-12-02T10:00:00Z', notes: null } },
      { op: 'callTool', name: 'delete_event', arguments: { event_id: event.event_id } },
      { op: 'callTool', name: 'list_events', arguments: { start_date: '2026-11-01T00:00:00Z', end_date: '2027-01-01T00:00:00Z' } },
    ]);
    check('the event is listed, updated and deleted', () => {
      assert.equal(structured(listed).count, 1);
      assert.equal(structured(listed).events[0].event_id, event.event_id);
      assert.equal(structured(updated).event.title, 'Design review (moved)');
      assert.equal(structured(updated).event.notes, '');
      assert.equal(structured(updated).event.location, 'Room 2');
      assert.match(updated.result.content[0].text, /\nEvent updated: Design review \(moved\)\n/);
      assert.equal(structured(deleted).event_id, event.event_id);
      assert.equal(structured(after).count, 0);
      assert.ok(!existsSync(join(data, 'Calendars', 'calendar', `${event.event_id}.ics`)));
    });

    // A weekly series another program wrote, in Berlin time across the start of summer time.
    const seriesFile = join(data, 'Calendars', 'calendar', 'sync.ics');
    writeFileSync(seriesFile, ['BEGIN:VCALENDAR', 'VERSION:2.0', 'PRODID:-//e2e//EN', 'BEGIN:VEVENT',
      'UID:sync-e2e', 'DTSTAMP:20260101T000000Z', 'DTSTART;TZID=Europe/Berlin:20260105T093000',
      'DTEND;TZID=Europe/Berlin:20260105T100000', 'RRULE:FREQ=WEEKLY;BYDAY=MO', 'SUMMARY:Sync', 'END:VEVENT',
      'END:VCALENDAR', ''].join('\r\n'));
    const weeks = { start_date: '2026-03-20T00:00:00Z', end_date: '2026-04-04T00:00:00Z' };
    const [series, movedOne, droppedOne, seriesAfter, seriesGone] = await scenario(url, [
      { op: 'callTool', name: 'list_events', arguments: weeks },
      { op: 'callTool', name: 'update_event', arguments: { event_id: 'sync-e2e@20260330T073000Z', title: 'Sync (moved)',
        start_date: '2026-03-31T07:30:00Z', end_date: '2026-03-31T08:00:00Z' } },
      { op: 'callTool', name: 'delete_event', arguments: { event_id: 'sync-e2e@20260323T083000Z' } },
      { op: 'callTool', name: 'list_events', arguments: weeks },
      { op: 'callTool', name: 'delete_event', arguments: { event_id: 'sync-e2e' } },
    ]);
    check('a repeating event is listed by occurrence, one is moved, one deleted, then the series', () => {
      assert.deepEqual(structured(series).events.map((e) => [e.event_id, e.start_date]), [
        ['sync-e2e@20260323T083000Z', '2026-03-23T08:30:00.000Z'],
        ['sync-e2e@20260330T073000Z', '2026-03-30T07:30:00.000Z'],
      ]);
      assert.equal(structured(series).truncated, false);
      assert.equal(structured(movedOne).event.start_date, '2026-03-31T07:30:00.000Z');
      assert.equal(structured(droppedOne).event_id, 'sync-e2e@20260323T083000Z');
      assert.deepEqual(structured(seriesAfter).events.map((e) => [e.event_id, e.start_date, e.title]), [
        ['sync-e2e@20260330T073000Z', '2026-03-31T07:30:00.000Z', 'Sync (moved)'],
      ]);
      assert.equal(structured(seriesGone).event_id, 'sync-e2e');
      assert.ok(!existsSync(seriesFile));
    });

    const [reminder, openList, done, openAfter, allAfter, gone] = await scenario(url, [
      { op: 'callTool', name: 'create_reminder', arguments: { title: 'Renew passport', due_date: '2027-01-15T08:00:00Z' } },
      { op: 'callTool', name: 'list_reminders', arguments: {} },
      { op: 'callTool', name: 'update_reminder', arguments: { reminder_id: 'later', completed: true } },
      { op: 'callTool', name: 'list_reminders', arguments: {} },
      { op: 'callTool', name: 'list_reminders', arguments: { include_completed: true } },
      { op: 'callTool', name: 'delete_reminder', arguments: { reminder_id: 'nobody' } },
    ]);
    const reminderId = structured(reminder).reminder.reminder_id;
    const [completed, hidden, deletedReminder] = await scenario(url, [
      { op: 'callTool', name: 'update_reminder', arguments: { reminder_id: reminderId, completed: true } },
      { op: 'callTool', name: 'list_reminders', arguments: {} },
      { op: 'callTool', name: 'delete_reminder', arguments: { reminder_id: reminderId } },
    ]);
    check('a reminder is created, listed, completed, hidden and deleted', () => {
      assert.equal(structured(reminder).reminder.due_date, '2027-01-15T08:00:00.000Z');
      assert.equal(structured(reminder).reminder.list_title, 'Reminders');
      assert.equal(structured(openList).count, 1);
      assert.equal(structured(done).error, "Reminder not found for id 'later'.");
      assert.equal(structured(openAfter).count, 1);
      assert.equal(structured(allAfter).count, 1);
      assert.equal(structured(gone).error, "Reminder not found for id 'nobody'.");
      assert.equal(structured(completed).reminder.completed, true);
      assert.equal(structured(hidden).count, 0);
      assert.equal(structured(deletedReminder).reminder_id, reminderId);
      assert.deepEqual(readdirSync(join(data, 'Calendars', 'reminders')).filter((f) => f.endsWith('.ics')), []);
    });

    const [contact, found, changed, removed, none] = await scenario(url, [
      { op: 'callTool', name: 'create_contact', arguments: { given_name: 'Grace', family_name: 'Hopper',
        organization_name: 'Navy, Bureau of Ships', phone_numbers: ['+1 202 555 0100', '  '], email_addresses: 'grace@example.org' } },
      { op: 'callTool', name: 'list_contacts', arguments: { query: 'GRACE HOPPER' } },
      { op: 'callTool', name: 'update_contact', arguments: { contact_id: 'placeholder' } },
      { op: 'callTool', name: 'delete_contact', arguments: { contact_id: '' } },
      { op: 'callTool', name: 'list_contacts', arguments: { query: 'nobody at all' } },
    ]);
    const contactId = structured(contact).contact.contact_id;
    const [edited, deletedContact] = await scenario(url, [
      { op: 'callTool', name: 'update_contact', arguments: { contact_id: contactId, phone_numbers: [], note: 'COBOL' } },
      { op: 'callTool', name: 'delete_contact', arguments: { contact_id: contactId } },
    ]);
    check('a contact is created, found, updated and deleted, written as vCard 4.0', () => {
      assert.equal(structured(contact).contact.display_name, 'Grace Hopper');
      assert.deepEqual(structured(contact).contact.phone_numbers, ['+1 202 555 0100']);
      assert.deepEqual(structured(contact).contact.email_addresses, ['grace@example.org']);
      assert.equal(contact.result.content[0].text.split('\n')[0], 'Contact created: Grace Hopper');
      assert.equal(structured(found).count, 1);
      assert.match(structured(changed).error, /^Failed to update contact: /);
      assert.equal(structured(removed).error, "Tool parameter 'contact_id' must not be empty.");
      assert.equal(structured(none).count, 0);
      assert.deepEqual(structured(edited).contact.phone_numbers, []);
      assert.equal(structured(edited).contact.note, 'COBOL');
      assert.equal(structured(deletedContact).contact_id, contactId);
    });
    const exit = await stop(server);
    check('SIGTERM stops the server with exit code 0', () => assert.equal(exit.code, 0));
  }

  // Revoked, the tools refuse again.
  const revoked = await run(kelvara, ['access', 'revoke', 'contacts'], env);
  const shown = await run(kelvara, ['access', 'show'], env);
  check('kelvara access revokes and shows', () => {
    assert.equal(revoked.code, 0);
    assert.equal(shown.stdout, 'calendars: granted\nreminders: granted\ncontacts: denied\nfolders: none granted\n');
  });
} finally {
  finish();
}
