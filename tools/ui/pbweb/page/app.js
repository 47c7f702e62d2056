// The phonebook page: tabs for the SIM and device phonebooks, a table with
// search, and forms for every change, all through pbweb's JSON API. Names
// and numbers are always put on the page as text (textContent), never as HTML.
'use strict';

const state = {
  book: 'sim',
  entries: [],          // as last listed (what the page shows)
  listed: null,         // the last list answer
  selected: new Set(),  // indexes
  status: null,
  editing: null,        // the entry as shown when its form was opened
  retry: null,          // timer of the next ask while the list cannot be shown
  delay: 0,             // ms before that ask: grows while the trouble lasts
  service: 'ready',     // pbweb's word for the phonebook service (status)
};

// The page's words come from one catalog per language (i18n/CODE.json,
// compiled into pbweb); i18n/languages.json names those there are.
// t(key, {name: value}) fills in the catalog's {name}s.
let words = {};
const t = (key, vars) => (key in words ? words[key] : key)
  .replace(/\{(\w+)\}/g, (m, k) => (vars && k in vars ? String(vars[k]) : m));
// A text with a count: the catalog's KEY_one, KEY_few, ... by the
// language's plural rules, else KEY_other; {n} is the count.
const tn = (key, n, vars) => {
  const form = `${key}_${new Intl.PluralRules(document.documentElement.lang).select(n)}`;
  return t(form in words ? form : `${key}_other`, { ...vars, n });
};

// What the page says for each state word pbweb answers with (and for the
// router not answering at all): what happened and what to do. The words are
// pbweb's; the page only has the text for them.
const STATES = new Set(['loading', 'reading', 'unreachable', 'no_card', 'offline', 'busy', 'failed']);
const stateText = (word) => ({ title: t(`state_${word}`), text: word === 'loading' ? '' : t(`state_${word}_text`) });
// The states in which the list cannot be shown and the page asks again.
const TROUBLE = new Set(['reading', 'unreachable', 'no_card', 'offline', 'busy', 'failed']);
const kFirstDelayMs = 1000;
const kMaxDelayMs = 16000;

const $ = (id) => document.getElementById(id);

class ApiError extends Error {
  constructor(status, body) {
    super(body && body.error ? body.error : 'pbweb answered with HTTP status ' + status);
    this.status = status;
    this.code = body ? body.code : undefined;
    this.retryAfter = 1;
    // pbweb's word for what went wrong (see STATES); 'offline' when the
    // router did not answer at all.
    this.state = status === 0 ? 'offline' : (body && body.state) || 'failed';
    // A 503 is the SIM phonebook being read, or the service's queue full.
    this.reading = Boolean(body && body.reading);
    // The list shown is not the phonebook any more, or may not be.
    this.reload = Boolean(body && body.reload);
  }
}

async function api(method, path, body) {
  const init = { method, headers: {}, credentials: 'same-origin' };
  if (body instanceof FormData) {
    init.body = body;
  } else if (body !== undefined) {
    init.headers['Content-Type'] = 'application/json';
    init.body = JSON.stringify(body);
  }
  let res;
  try {
    res = await fetch(path, init);
  } catch (e) {
    throw new ApiError(0, { error: 'the router could not be reached; check the connection and try again' });
  }
  const type = res.headers.get('Content-Type') || '';
  if (!type.startsWith('application/json')) {
    if (res.ok) return res;
    throw new ApiError(res.status, null);
  }
  const data = await res.json();
  if (!res.ok) {
    const err = new ApiError(res.status, data);
    err.retryAfter = Number(res.headers.get('Retry-After')) || 1;
    throw err;
  }
  return data;
}

// pbweb's messages read as parts of a sentence ("list: ..."); shown alone they
// start with a capital.
const sentence = (text) => text.charAt(0).toUpperCase() + text.slice(1);

function say(text) { $('message').textContent = text; $('error').textContent = ''; $('report').replaceChildren(); }
// A failure in words for the user: the state's text when the phonebook
// itself is in trouble, else pbweb's words for what was refused.
function errorText(err) {
  if (STATES.has(err.state) && err.state !== 'failed') return t('change_not_made', stateText(err.state));
  // The refusals a user can act on, by pbweb's code, in the catalog's words.
  const refusal = `code_${err.code}`;
  if (refusal in words) return t(refusal);
  return sentence(err.message);
}

function fail(err) {
  $('message').textContent = '';
  $('report').replaceChildren();
  $('error').textContent = errorText(err);
  // The list shown may no longer be what can be done: find out.
  if (TROUBLE.has(err.state) && err.state !== 'failed') load();
}

// ---- status, tabs and the list ----

function showCounts(st) {
  const fmt = (b) => b.used === null ? '' : b.total ? `${b.used}/${b.total}` : `${b.used}`;
  $('count-sim').textContent = st.sim.state === 'reading' ? t('reading_count') : fmt(st.sim);
  $('count-device').textContent = fmt(st.device);
}

async function refreshStatus() {
  try {
    state.status = await api('GET', '/api/status');
    showCounts(state.status);
    $('logout').hidden = !state.status.login;
    setService(state.status.service);
  } catch (e) {
    if (e.status === 401) return showLogin();
  }
}

// Without the service the device phonebook is still listed, exported and
// imported (from its file); the changes that need the service wait, and
// the page asks again until it is back.
function setService(word) {
  const was = state.service;
  state.service = word;
  const down = word !== 'ready' && state.book === 'device';
  $('service').hidden = !down;
  $('service').textContent = down ? t('service_notice') : '';
  updateSelection();
  if (down) {
    later(refreshStatus, nextDelay());
  } else if (was !== 'ready' && state.book === 'device') {
    state.delay = 0;
    load();
  }
}

function nextDelay() {
  state.delay = Math.min(state.delay ? state.delay * 2 : kFirstDelayMs, kMaxDelayMs);
  return state.delay;
}

function later(fn, ms) {
  clearTimeout(state.retry);
  state.retry = setTimeout(fn, ms);
}

function selectTab(book, focus) {
  state.book = book;
  for (const tab of document.querySelectorAll('[role=tab]')) {
    const on = tab.dataset.book === book;
    tab.setAttribute('aria-selected', on);
    tab.tabIndex = on ? 0 : -1;
    if (on) {
      $('panel').setAttribute('aria-labelledby', tab.id);
      if (focus) tab.focus();
    }
  }
  $('import-open').hidden = book !== 'device';
  $('copy-cut-label').hidden = book !== 'device';
  $('table').classList.toggle('hide-sim', book !== 'sim');
  $('search').value = '';
  $('service').hidden = true;  // until the status says
  state.selected.clear();
  state.delay = 0;
  say('');
  if (!state.listed) showState('loading');
  load();
}

// The panel that stands in for the list while it cannot be shown (null:
// the list). The actions on the list are disabled meanwhile.
function showState(word) {
  const st = STATES.has(word) ? stateText(word) : null;
  state.shown = word;
  $('book').hidden = false;
  $('state').hidden = !st;
  $('state').classList.toggle('problem', Boolean(st) && word !== 'loading' && word !== 'reading');
  $('state').dataset.state = word || '';
  $('state-spinner').hidden = word !== 'loading' && word !== 'reading';
  $('state-title').textContent = st ? st.title : '';
  $('state-text').textContent = st ? st.text : '';
  $('book').classList.toggle('stalled', Boolean(st));
  $('table').hidden = Boolean(st) || state.entries.length === 0;
  if (st) $('empty').hidden = true;
  updateSelection();
}

async function load() {
  clearTimeout(state.retry);
  const book = state.book;
  const q = $('search').value;
  try {
    const data = await api('GET', `/api/${book}/entries` + (q ? '?q=' + encodeURIComponent(q) : ''));
    if (book !== state.book) return;
    state.delay = 0;
    state.entries = data.entries;
    showState(null);
    render(data);
    refreshStatus();
  } catch (e) {
    if (book !== state.book) return;
    if (e.status === 401) return showLogin();
    state.entries = [];
    $('rows').replaceChildren();
    showState(e.state);
    if (book === 'sim') $('count-sim').textContent = e.state === 'reading' ? t('reading_count') : '';
    // The SIM being read is asked after pbweb's Retry-After; any other
    // trouble after a delay that grows while it lasts.
    later(load, e.state === 'reading' ? e.retryAfter * 1000 : nextDelay());
  }
}

// A cell of the list; `label` names its field on a phone, where each entry
// is a card ('' hides the cell there, null: no name). The roles keep the
// list a table to assistive technology while its rows are laid out as grids.
function cell(text, label, cls) {
  const td = document.createElement('td');
  td.setAttribute('role', 'cell');
  td.textContent = text;
  if (label !== null) td.dataset.label = label;
  td.className = cls;
  return td;
}

// A row's Edit or Delete button: the list's one click handler (wire) acts
// on it by its data-act.
function rowButton(text, label, act, cls, off) {
  const b = document.createElement('button');
  b.type = 'button';
  b.textContent = text;
  b.setAttribute('aria-label', label);
  b.className = cls;
  b.dataset.act = act;
  b.disabled = off;
  return b;
}

// The list, drawn in one go. Its checkboxes and buttons have no listeners
// of their own (the list's handlers find the entry by the row), so that a
// thousand rows are made quickly.
function render(data) {
  state.listed = data;
  const sim = state.book === 'sim';
  const off = $('book').classList.contains('stalled') || state.service !== 'ready';
  const word = { index: t('col_index'), sim: sim ? t('col_sim') : '', name: t('col_name'),
    number: t('col_number'), email: t('col_email'), edit: t('edit'), delete: t('delete') };
  const rows = document.createDocumentFragment();
  for (const e of data.entries) {
    const tr = document.createElement('tr');
    tr.setAttribute('role', 'row');
    tr.dataset.index = e.index;
    const picked = state.selected.has(e.index);
    if (picked) tr.className = 'selected';
    const pick = cell('', null, 'pick');
    const box = document.createElement('input');
    box.type = 'checkbox';
    box.checked = picked;
    box.setAttribute('aria-label', t('select_entry', e));
    pick.append(box);
    const act = cell('', null, 'actions');
    act.append(rowButton(word.edit, t('edit_entry', e), 'edit', 'needs-service', off), ' ',
      rowButton(word.delete, t('delete_entry', e), 'delete', 'danger needs-service', off));
    tr.append(pick, cell(e.index, word.index, 'c-index'), cell(sim ? e.sim_index : '', word.sim, 'c-sim sim-only'),
      cell(e.name, word.name, 'c-name'), cell(e.number, word.number, 'c-number'),
      cell(e.email, word.email, 'c-email'), act);
    rows.append(tr);
  }
  $('rows').replaceChildren(rows);
  state.rowsOff = off;
  const total = data.total ? t('caption_total', data) : '';
  $('caption').textContent = t('caption', { book: bookWord(state.book), count: data.count, total });
  $('empty').hidden = data.entries.length > 0;
  $('empty').textContent = data.count === 0 ? t(`empty_${state.book}`) : t('no_match');
  $('table').hidden = data.entries.length === 0;
  $(`count-${state.book}`).textContent = data.total ? `${data.count}/${data.total}` : `${data.count}`;
  const listed = new Set(data.entries.map((e) => e.index));
  for (const i of state.selected) if (!listed.has(i)) state.selected.delete(i);
  updateSelection();
}

function updateSelection() {
  const n = state.selected.size;
  // No list shown: nothing can be done to it. No service: only what the
  // device phonebook's file allows (export, import).
  const stalled = $('book').classList.contains('stalled');
  const noService = stalled || state.service !== 'ready';
  for (const el of $('book').querySelectorAll('.toolbar button, .toolbar input, .toolbar select, #select-all')) {
    el.disabled = stalled;
  }
  $('add').disabled = noService;
  $('delete-all').disabled = noService;
  // The rows' buttons only when that changes: a thousand of them.
  if (state.rowsOff !== noService) {
    for (const b of $('rows').querySelectorAll('.needs-service')) b.disabled = noService;
    state.rowsOff = noService;
  }
  $('delete-selected').disabled = n === 0 || noService;
  $('copy-selected').disabled = n === 0 || noService;
  $('copy-selected').textContent = t('copy_selected',
    { n: n ? ` (${n})` : '', book: bookWord(state.book === 'sim' ? 'device' : 'sim') });
  $('export-selected').disabled = n === 0 || stalled;
  $('delete-selected').textContent = n ? t('delete_selected_n', { n }) : t('delete_selected');
  $('export-selected').textContent = n ? t('export_selected_n', { n }) : t('export_selected');
  const all = state.entries.length > 0 && state.entries.every((e) => state.selected.has(e.index));
  $('select-all').checked = all;
  $('select-all-bar').checked = all;
  for (const tr of $('rows').children) tr.classList.toggle('selected', state.selected.has(Number(tr.dataset.index)));
}

// ---- add and edit, with live checks ----

function hint(id, text, bad) {
  const h = $(id);
  h.textContent = text;
  h.classList.toggle('bad', !!bad);
  $(id.replace('h-', 'f-')).setAttribute('aria-invalid', bad ? 'true' : 'false');
  return !bad;
}

// The page holds no rule of its own: pbweb says how each field would be
// stored and whether it fits (bytes of the field, the name's encoding and
// octets on the card, the number as a phone dials it), as pbcli check does.
let checkSeq = 0;
let checkTimer = null;

const query = (fields) => Object.entries(fields).map(([k, v]) => `${k}=${encodeURIComponent(v)}`).join('&');
const left = (f) => t('bytes_left', { left: f.max_bytes - f.bytes, max: f.max_bytes });

// Shows the checks and gives whether the form may be saved; null when a
// later check has been asked meanwhile.
async function checkEntry() {
  clearTimeout(checkTimer);
  const fields = formFields();
  const seq = ++checkSeq;
  let c;
  try {
    c = await api('GET', `/api/${state.book}/check?${query(fields)}`);
  } catch (e) {
    if (seq === checkSeq) $('entry-error').textContent = sentence(e.message);
    return false;
  }
  if (seq !== checkSeq) return null;

  const n = c.name;
  const noName = fields.name.trim() === '';
  let nameText = (noName ? t('name_needed') : '') + left(n);
  if (n.card && fields.name) {
    if (n.card.octets === null) nameText += t('no_emoji');
    else if (n.card.max) nameText += t('on_card_of', n.card) + (n.fits ? '' : t('too_long_card'));
    else nameText += t('on_card', n.card);
  }
  let ok = hint('h-name', nameText, noName || !n.fits);

  const num = c.number;
  let numText;
  if (num.error) {
    // pbweb's reason word and what it names, in the catalog's words; its
    // English sentence for a reason the catalog lacks.
    const reason = num.reason && `number_${num.reason.code}`;
    numText = reason && reason in words ? t(reason, num.reason) : sentence(num.error);
  } else {
    numText = (num.stored && num.stored !== fields.number ? t('stored_as', { number: num.stored }) : '') + left(num);
    if (num.card && num.card.max) numText += t('on_card_digits', num.card);
  }
  ok = hint('h-number', numText, !num.fits) && ok;
  if (c.email) ok = hint('h-email', left(c.email), !c.email.fits) && ok;
  return ok;
}

// The form's fields; a SIM card's records hold no e-mail address, so the
// SIM's form has none.
function formFields() {
  const fields = { name: $('f-name').value, number: $('f-number').value };
  if (state.book !== 'sim') fields.email = $('f-email').value;
  return fields;
}

function checkSoon() {
  clearTimeout(checkTimer);
  checkTimer = setTimeout(checkEntry, 150);
}

function openEntry(entry) {
  state.editing = entry || null;
  $('entry-title').textContent = entry ? t('edit_entry', entry) : t('add_title', { book: bookWord(state.book) });
  $('f-name').value = entry ? entry.name : '';
  $('f-number').value = entry ? entry.number : '';
  $('f-email').value = entry ? entry.email : '';
  $('email-field').hidden = state.book === 'sim';
  $('entry-error').textContent = '';
  checkEntry();
  $('entry-dialog').showModal();
  $('f-name').focus();
}

async function saveEntry(ev) {
  ev.preventDefault();
  if (!(await checkEntry())) {
    $('entry-error').textContent = t('correct_fields');
    return;
  }
  const fields = formFields();
  const was = state.editing;
  try {
    let data;
    if (was) {
      data = await api('PUT', `/api/${state.book}/entries/${was.index}`,
        { ...fields, was: { name: was.name, number: was.number, email: was.email } });
    } else {
      data = await api('POST', `/api/${state.book}/entries`, fields);
    }
    $('entry-dialog').close();
    say(t(was ? 'changed_entry' : 'added_entry', data.entry));
    load();
  } catch (e) {
    if (e.reload) {
      $('entry-dialog').close();
      fail(e);
      load();
      return;
    }
    // The form stays open with what was typed, to be saved once the
    // phonebook is back.
    $('entry-error').textContent = errorText(e);
    if (TROUBLE.has(e.state) && e.state !== 'failed') load();
  }
}

// ---- delete, several, all ----

let confirmAction = null;

function ask(text, typed, action) {
  $('confirm-text').textContent = text;
  $('confirm-typed').hidden = !typed;
  $('confirm-input').value = '';
  $('confirm-ok').disabled = typed;
  confirmAction = action;
  $('confirm-dialog').showModal();
  (typed ? $('confirm-input') : $('confirm-cancel')).focus();
}

function confirmDelete(list) {
  const book = bookWord(state.book);
  const question = list.length === 1 ? t('ask_delete_one', { ...list[0], book }) :
    t('ask_delete_many', { n: list.length, book });
  ask(question, false, async () => {
    try {
      const body = { entries: list.map((e) => ({ index: e.index, name: e.name, number: e.number, email: e.email })) };
      const data = await api('POST', `/api/${state.book}/delete`, body);
      for (const i of data.deleted) state.selected.delete(i);
      say(data.deleted.length === 1 ? t('deleted_one', { index: data.deleted[0] }) :
        t('deleted_many', { n: data.deleted.length }));
    } catch (e) {
      fail(e);
    }
    load();
  });
}

function confirmDeleteAll() {
  const book = bookWord(state.book);
  ask(t('ask_delete_all', { book }), true, async () => {
    try {
      const data = await api('POST', `/api/${state.book}/delete-all`, { confirm: 'delete all' });
      state.selected.clear();
      say(t('deleted_all', { n: data.deleted, book }));
    } catch (e) {
      fail(e);
    }
    load();
  });
}

// ---- copy to the other phonebook ----

async function copySelected() {
  const list = state.entries.filter((e) => state.selected.has(e.index));
  const body = { entries: list.map((e) => ({ index: e.index, name: e.name, number: e.number, email: e.email })) };
  if (state.book === 'device') body.cut = $('copy-cut').checked;
  try {
    const data = await api('POST', `/api/${state.book}/copy`, body);
    showReport(data, t('copy_from', { book: bookWord(state.book) }), t('source_index'));
  } catch (e) {
    fail(e);
    if (e.reload) load();
  }
  refreshStatus();
}

// ---- duplicates across both phonebooks ----

// The groups the dialog shows: {kind: 'same'|'maybe', members: [{phonebook, entry}]}.
let dupGroups = [];

async function openDuplicates() {
  $('dup-error').textContent = '';
  $('dup-groups').replaceChildren();
  $('dup-summary').textContent = t('dup_looking');
  $('dup-merge').disabled = true;
  if (!$('dup-dialog').open) $('dup-dialog').showModal();
  let data;
  try {
    data = await api('GET', '/api/duplicates');
  } catch (e) {
    // Nothing was to change: the phonebook's state in its own words.
    const st = TROUBLE.has(e.state) && e.state !== 'failed' ? stateText(e.state) : null;
    $('dup-summary').textContent = '';
    $('dup-error').textContent = st ? `${st.title} ${st.text}` : errorText(e);
    return;
  }
  dupGroups = [...data.groups.map((members) => ({ kind: 'same', members })),
    ...data.maybe.map((members) => ({ kind: 'maybe', members }))];
  $('dup-summary').textContent = t(dupGroups.length ? 'dup_intro' : 'dup_none');
  $('dup-groups').replaceChildren(...dupGroups.map(groupView));
  updateMerge();
}

// One group: whether to merge it (the sure ones are ticked, the maybes are
// the user's call) and which entry to keep (pbweb's choice first).
function groupView(group, k) {
  const set = document.createElement('fieldset');
  set.className = 'dup-group';
  set.dataset.kind = group.kind;
  const take = document.createElement('input');
  take.type = 'checkbox';
  take.className = 'dup-take';
  take.checked = group.kind === 'same';
  take.addEventListener('change', updateMerge);
  const title = document.createElement('label');
  title.append(take, ' ', t(group.kind === 'same' ? 'dup_group' : 'dup_maybe', { n: group.members.length }));
  const legend = document.createElement('legend');
  legend.append(title);
  set.append(legend);
  group.members.forEach((m, i) => {
    const keep = document.createElement('input');
    keep.type = 'radio';
    keep.name = `keep-${k}`;
    keep.value = i;
    keep.checked = i === 0;
    keep.setAttribute('aria-label', t('dup_keep', { entry: t(`entry_in_${m.phonebook}`, m.entry) }));
    const row = document.createElement('label');
    row.className = 'dup-entry';
    const e = m.entry;
    row.append(keep, `${t(`entry_in_${m.phonebook}`, e)}: ${[e.name, e.number, e.email].filter(Boolean).join(', ')}`);
    set.append(row);
  });
  return set;
}

// The groups ticked, each as pbweb's merge takes it: the entry to keep
// and those to delete, with the fields shown (a change made meanwhile is
// refused, not merged).
function chosenGroups() {
  const shown = (m) => ({ phonebook: m.phonebook, index: m.entry.index, name: m.entry.name,
    number: m.entry.number, email: m.entry.email });
  const sets = [...$('dup-groups').children];
  return dupGroups.flatMap((group, k) => {
    if (!sets[k].querySelector('.dup-take').checked) return [];
    const keep = Number(sets[k].querySelector('input[type=radio]:checked').value);
    return [{ keep: shown(group.members[keep]),
      delete: group.members.filter((_, i) => i !== keep).map(shown) }];
  });
}

function updateMerge() {
  const groups = chosenGroups();
  const n = groups.reduce((sum, g) => sum + g.delete.length, 0);
  $('dup-merge').disabled = groups.length === 0;
  $('dup-merge').textContent = groups.length ? tn('dup_merge', n) : t('dup_merge');
}

async function mergeDuplicates(ev) {
  ev.preventDefault();
  const groups = chosenGroups();
  if (!groups.length) return;
  try {
    const data = await api('POST', '/api/merge', { groups });
    $('dup-dialog').close();
    say(tn('merged', data.deleted.length));
  } catch (e) {
    // What is left to merge may have changed: show the groups as they are.
    await openDuplicates();
    $('dup-error').textContent = errorText(e);
  }
  load();
  refreshStatus();
}

// ---- import and export ----

function openImport() {
  $('import').reset();
  $('import-error').textContent = '';
  $('import-dialog').showModal();
  $('import-file').focus();
}

async function importFile(ev) {
  ev.preventDefault();
  const file = $('import-file').files[0];
  if (!file) return ($('import-error').textContent = t('choose_file'));
  if (file.size > 1024 * 1024) return ($('import-error').textContent = t('file_too_large'));
  const form = new FormData();
  form.append('file', file);
  const format = $('import-format').value;
  try {
    const data = await api('POST', '/api/device/import' + (format ? '?format=' + format : ''), form);
    $('import-dialog').close();
    showReport(data, t('import_from', { file: file.name, format: data.format }), t('source_line'));
  } catch (e) {
    $('import-error').textContent = errorText(e);
  }
  load();
}

// The summary of an import or a copy, and what became of each contact.
function showReport(data, from, sourceWord) {
  say(t(data.read === 1 ? 'report_summary_one' : 'report_summary',
    { added: data.added, read: data.read, from, book: bookWord(data.phonebook) }));
  const items = data.contacts.map((c) => {
    const li = document.createElement('li');
    li.className = c.outcome === 'added' ? '' : 'bad';
    const e = c.outcome === 'added' ? c.entry : c.read;
    li.textContent = `${sourceWord} ${c.source}: ${[e.name, e.number].filter(Boolean).join(' ')}: ${outcomeText(c)}`;
    return li;
  });
  $('report').replaceChildren(...items);
}

// What became of one contact, from its outcome word and flags; pbweb's
// own words for an outcome the catalog does not know.
function outcomeText(c) {
  const key = `outcome_${c.outcome}`;
  if (!(key in words)) return c.text;
  if (c.outcome !== 'added') return t(key, c);
  let text = c.index > 0 ? t('outcome_added_at', c) : t(key);
  if (c.renamed) text += t('outcome_renamed', c.entry);
  if (c.name_cut) text += t('outcome_name_cut', c.entry);
  if (c.email_cut) text += t('outcome_email_cut');
  if (c.email_dropped) text += t('outcome_email_dropped');
  return text;
}

async function exportEntries(indexes) {
  const format = $('export-format').value;
  const query = `?format=${format}` + (indexes.length ? '&index=' + indexes.join(',') : '');
  try {
    const res = await api('GET', `/api/${state.book}/export${query}`);
    const blob = await res.blob();
    const a = document.createElement('a');
    a.href = URL.createObjectURL(blob);
    // The file's name is pbweb's (its extension says the format).
    const named = /filename="([^"]+)"/.exec(res.headers.get('Content-Disposition') || '');
    a.download = named ? named[1] : `${state.book}-phonebook`;
    document.body.append(a);
    a.click();
    a.remove();
    setTimeout(() => URL.revokeObjectURL(a.href), 10000);
    const n = indexes.length;
    say(t(n === 0 ? 'exported_all' : n === 1 ? 'exported_one' : 'exported_many', { n, file: a.download }));
  } catch (e) {
    fail(e);
  }
}

// ---- login ----

function showLogin() {
  clearTimeout(state.retry);
  $('app').hidden = true;
  $('logout').hidden = true;
  $('login').hidden = false;
  $('password').focus();
}

async function login(ev) {
  ev.preventDefault();
  try {
    await api('POST', '/api/login', { password: $('password').value });
    $('password').value = '';
    $('login-error').textContent = '';
    $('login').hidden = true;
    $('logout').hidden = false;
    start();
  } catch (e) {
    $('login-error').textContent = e.status === 401 ? t('login_wrong') : errorText(e);
  }
}

async function logout() {
  try { await api('POST', '/api/logout', {}); } catch (e) { /* the login form follows anyway */ }
  showLogin();
}

// ---- languages ----

// "SIM" or "device" in a sentence ("the {book} phonebook").
const bookWord = (book) => t(`book_${book}`);

// The browser's languages (what it sends as Accept-Language), unless one
// was chosen on the page; English when none of them has a catalog.
async function chooseLanguage() {
  let langs = { en: 'English' };
  try { langs = await (await fetch('/i18n/languages.json')).json(); } catch (e) { /* English */ }
  $('lang').replaceChildren(...Object.entries(langs).map(([code, own]) => new Option(own, code)));
  const wanted = [localStorage.getItem('lang'), ...navigator.languages].filter(Boolean);
  const code = wanted.map((w) => w.toLowerCase().split('-')[0]).find((w) => w in langs) || 'en';
  await setLanguage(code);
}

// A word a catalog lacks is shown in English rather than as its key.
async function setLanguage(code) {
  const catalog = async (c) => (await fetch(`/i18n/${c}.json`)).json();
  try { words = { ...(await catalog('en')), ...(code === 'en' ? {} : await catalog(code)) }; } catch (e) { return; }
  document.documentElement.lang = code;
  $('lang').value = code;
  for (const el of document.querySelectorAll('[data-i18n]')) el.textContent = t(el.dataset.i18n);
  for (const el of document.querySelectorAll('[data-i18n-placeholder]')) el.placeholder = t(el.dataset.i18nPlaceholder);
  for (const el of document.querySelectorAll('[data-i18n-aria-label]')) {
    el.setAttribute('aria-label', t(el.dataset.i18nAriaLabel));
  }
  // The typed confirmation stays "delete all" in every language: pbweb asks for it.
  const [before, after] = t('confirm_typed').split('{phrase}');
  const phrase = document.createElement('strong');
  phrase.textContent = 'delete all';
  $('confirm-typed-label').replaceChildren(before, phrase, after || '');
  // What is shown now, in the new words.
  if (state.shown) showState(state.shown);
  else if (state.listed) render(state.listed);
  if (state.status) showCounts(state.status);
  if (!$('service').hidden) $('service').textContent = t('service_notice');
}

// ---- start ----

// While the list is shown the page asks after the phonebook now and then,
// so that a service or modem that goes away shows in its panel without
// waiting for the user's next action.
const kIdlePollMs = 10000;

async function idleCheck() {
  if (document.hidden || $('app').hidden || state.shown) return;
  await refreshStatus();
  const st = state.status && state.status[state.book];
  if (st && st.state !== 'ready' && !state.shown) load();
}

function start() {
  $('app').hidden = false;
  selectTab(state.book, false);
}

setInterval(idleCheck, kIdlePollMs);

function wire() {
  for (const tab of document.querySelectorAll('[role=tab]')) {
    tab.addEventListener('click', () => selectTab(tab.dataset.book, false));
    tab.addEventListener('keydown', (ev) => {
      if (ev.key === 'ArrowLeft' || ev.key === 'ArrowRight' || ev.key === 'Home' || ev.key === 'End') {
        ev.preventDefault();
        selectTab(state.book === 'sim' ? 'device' : 'sim', true);
      }
    });
  }
  let typing = null;
  $('search').addEventListener('input', () => { clearTimeout(typing); typing = setTimeout(load, 200); });
  $('add').addEventListener('click', () => openEntry(null));
  // The rows' own controls, by the entry of their row.
  const entryOf = (el) => state.entries.find((e) => e.index === Number(el.closest('tr').dataset.index));
  $('rows').addEventListener('click', (ev) => {
    const b = ev.target.closest('button[data-act]');
    if (!b) return;
    const e = entryOf(b);
    if (b.dataset.act === 'edit') openEntry(e);
    else confirmDelete([e]);
  });
  $('rows').addEventListener('change', (ev) => {
    const index = Number(ev.target.closest('tr').dataset.index);
    ev.target.checked ? state.selected.add(index) : state.selected.delete(index);
    updateSelection();
  });
  $('entry-form').addEventListener('submit', saveEntry);
  $('entry-form').addEventListener('input', checkSoon);
  $('entry-cancel').addEventListener('click', () => $('entry-dialog').close());
  for (const box of [$('select-all'), $('select-all-bar')]) {
    box.addEventListener('change', () => {
      for (const e of state.entries) box.checked ? state.selected.add(e.index) : state.selected.delete(e.index);
      render(state.listed);
    });
  }
  // The phone's menu of actions: a button that opens the bar below it;
  // Escape closes it and gives the focus back.
  const toggleActions = (open) => {
    $('actions').classList.toggle('open', open);
    $('actions-toggle').setAttribute('aria-expanded', open);
  };
  $('actions-toggle').addEventListener('click', () => toggleActions(!$('actions').classList.contains('open')));
  $('actions').addEventListener('keydown', (ev) => {
    if (ev.key === 'Escape' && $('actions').classList.contains('open')) {
      toggleActions(false);
      $('actions-toggle').focus();
    }
  });
  $('import-open').addEventListener('click', openImport);
  $('import-cancel').addEventListener('click', () => $('import-dialog').close());
  $('delete-selected').addEventListener('click', () =>
    confirmDelete(state.entries.filter((e) => state.selected.has(e.index))));
  $('export-selected').addEventListener('click', () => exportEntries([...state.selected].sort((a, b) => a - b)));
  $('export-all').addEventListener('click', () => exportEntries([]));
  $('copy-selected').addEventListener('click', copySelected);
  $('delete-all').addEventListener('click', confirmDeleteAll);
  $('confirm-input').addEventListener('input', () => {
    $('confirm-ok').disabled = $('confirm-input').value.trim() !== 'delete all';
  });
  $('confirm-cancel').addEventListener('click', () => $('confirm-dialog').close());
  $('confirm-form').addEventListener('submit', (ev) => {
    ev.preventDefault();
    if ($('confirm-ok').disabled) return;
    $('confirm-dialog').close();
    if (confirmAction) confirmAction();
  });
  $('import').addEventListener('submit', importFile);
  $('dup-open').addEventListener('click', openDuplicates);
  $('dup-close').addEventListener('click', () => $('dup-dialog').close());
  $('dup-form').addEventListener('submit', mergeDuplicates);
  $('login').addEventListener('submit', login);
  $('lang').addEventListener('change', () => {
    localStorage.setItem('lang', $('lang').value);
    setLanguage($('lang').value);
  });
  $('logout').addEventListener('click', logout);
}

wire();
chooseLanguage().then(start);
