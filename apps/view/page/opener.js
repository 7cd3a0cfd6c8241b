// SPDX-License-Identifier: BSD-3-Clause
//
// Opening: another plate, what goes beside it, or a preset, chosen in a dialog, dropped on the page
// or pasted. What is dropped or pasted is asked for its part; a preset is known by its ending.
import * as server from './server.js';
import {areMasks} from './shapes.js';

/** Whether who answers the page takes files: where not, there is nothing to open with. */
export const takesFiles = Boolean(server.give && server.reopen);

const roles = [
  ['plate', 'Plate'], ['background', 'Background'], ['holdOut', 'Hold-out matte'],
  ['garbage', 'Garbage matte'], ['reference', 'Clean plate'],
];

const isText = (role) => role === 'preset' || role === 'masks';
const isPreset = (files) => files.length === 1 && /\.json$/i.test(files[0].name);

export class Opener {
  /** read(name, texts)  is handed the settings of a preset */
  constructor({dialog, title, rows, told, input, close, button}, state, busy, read) {
    Object.assign(this, {dialog, title, rows, told, input, state, busy, read});
    this.waiting = null;  // files whose part is not known yet
    button.addEventListener('click', () => this.show(null));
    close.addEventListener('click', () => dialog.close());
    input.addEventListener('change', () => {
      const files = [...input.files];
      input.value = '';
      if (files.length > 0) this.take(this.role, files);
    });
    addEventListener('dragover', (event) => event.preventDefault());
    addEventListener('drop', (event) => {
      event.preventDefault();
      this.show([...event.dataTransfer.files]);
    });
    addEventListener('paste', (event) => {
      const files = [...event.clipboardData?.files ?? []];
      if (files.length > 0) this.show(files);
    });
  }

  /** Shows what is open; with files, asks what they are. */
  show(files) {
    if (files && files.length === 0) return;
    if (files && isPreset(files)) { this.take('preset', files); return; }
    this.waiting = files;
    this.title.textContent = files ? `Use ${files.length === 1 ? files[0].name : `${files.length} files`} as` : 'Open';
    this.told.textContent = files ? '' : 'Or drop or paste files on the page; numbered frames are taken together.';
    this.rows.replaceChildren(...roles.flatMap((role) => this.row(...role)), ...(files ? [] : this.row('preset', 'Preset')), ...(!files && this.state.description.masks ? this.row('masks', 'Masks') : []));
    if (!this.dialog.open) this.dialog.showModal();
  }

  row(role, label) {
    const make = (name, properties) => Object.assign(document.createElement(name), properties);
    const open = this.state.description.files[role] ?? '';
    const choose = make('button', {textContent: this.waiting ? 'Use' : 'Choose'});
    choose.setAttribute('aria-label', `${choose.textContent}: ${label}`);
    choose.addEventListener('click', () => {
      if (this.waiting) { this.take(role, this.waiting); return; }
      this.role = role;
      this.input.multiple = !isText(role);
      this.input.accept = isText(role) ? '.json' : '';
      this.input.click();
    });
    const remove = make('button', {textContent: 'Remove', disabled: role === 'plate' || !open});
    remove.setAttribute('aria-label', `Remove: ${label}`);
    remove.addEventListener('click', () => this.take(role, []));
    return [make('span', {textContent: label}), make('span', {textContent: open, className: 'name'}), choose,
      isText(role) ? make('span', {}) : remove];
  }

  /** Opens files as a role; none: what is there goes. */
  async take(role, files) {
    const giving = new AbortController();
    // The file that was read last is the one that counts, whenever its answer comes.
    if (isText(role)) this.reading?.abort();
    if (isText(role)) this.reading = giving;
    const end = this.busy.begin('Opening', {stop: () => giving.abort()});
    try {
      if (isText(role)) {
        const text = await files[0].text();
        // What is dropped says itself which of both it is.
        const what = areMasks(text) ? 'read-masks' : 'read-preset';
        const {settings} = await server.ask(what, {text}, giving.signal);
        this.read(files[0].name, settings);
        this.dialog.close();
        return;
      }
      const {settings} = await server.give(role, files, (part) => {
        this.told.textContent = `Handing over, ${Math.round(100 * part)} %`;
      }, giving.signal);
      // What was set for one plate says nothing about another.
      if (role === 'plate') history.replaceState(null, '', location.pathname);
      else if (role === 'background') {
        this.state.set({output: settings.output});
        // Who opens one wants to see it.
        if (files.length > 0) this.state.show({view: 'composite'});
      }
      server.reopen();
    } catch (error) {
      if (isText(role) && this.reading !== giving) return;
      const words = giving.signal.aborted ? 'Stopped: nothing was opened.'
        : error.subject && error.subject !== 'server' ? `${error.subject}: ${error.message}` : error.message;
      if (!this.dialog.open) this.show(null);
      this.told.textContent = words;
    } finally {
      end();
    }
  }
}
