// SPDX-License-Identifier: BSD-3-Clause
//
// The controls, made from the parameter table. A control shows the value in force, marks a given
// one, and gives it back to its default on a double click on its name or its slider.

const channels = ['red', 'green', 'blue'];
const moving = new Set(['ArrowUp', 'ArrowDown', 'ArrowLeft', 'ArrowRight', 'PageUp', 'PageDown', 'Home', 'End']);
const warningMilliseconds = 6000;

const element = (name, properties = {}, ...children) => {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(properties)) {
    if (key in made) made[key] = value; else made.setAttribute(key, value);
  }
  made.append(...children);
  return made;
};

/** Four decimals at the most: what settings keep. */
const short = (value) => String(Number(Number(value).toFixed(4)));

const numbersOf = (text, count) => {
  const numbers = text.split(',').map(Number);
  return Array.from({length: count}, (unused, i) => numbers[i] ?? numbers[0]);
};

const textOf = (numbers) => numbers.every((one) => one === numbers[0]) ? short(numbers[0]) : numbers.map(short).join(',');

export class Panel {
  /** pick(parameter) takes out the eyedropper for a colour. */
  constructor({root, help, warned}, state, pick) {
    Object.assign(this, {root, help, warned, state, pick});
    this.rows = [];
    this.warnedAt = -Infinity;
    const groups = new Map();
    for (const parameter of state.description.parameters) {
      if (!groups.has(parameter.group)) {
        const group = element('details', {open: parameter.startsOpen},
          element('summary', {textContent: parameter.group}));
        groups.set(parameter.group, group);
        root.append(group);
      }
      groups.get(parameter.group).append(this.row(parameter));
    }
    // The screen is what one starts with.
    const screen = state.description.parameters.find((one) => one.name === 'screen');
    if (screen) root.prepend(groups.get(screen.group));
    state.addEventListener('settings', () => this.refresh());
    this.held = false;
    this.listenToHeldKeys(root);
    state.addEventListener('shown', () => this.refresh());
    help.textContent = 'Point at a control to read what it does. A double click on its name or slider gives it back to its default.';
    this.refresh();
  }

  row(parameter) {
    const {name, type} = parameter;
    const row = element('div', {className: 'row'});
    const id = `p-${name}`;
    const label = element(type === 'colour' ? 'span' : 'label', {className: 'name', textContent: parameter.label});
    if (type !== 'colour') label.htmlFor = id;
    label.title = 'Double click: back to the default';
    const key = this.key(parameter);
    row.append(key ? element('span', {className: 'named'}, label, key) : label);
    const made = this[type](parameter, id);
    row.append(...made.elements);
    const entry = {parameter, row, key, refresh: made.refresh};
    this.rows.push(entry);
    for (const one of [label, ...row.querySelectorAll('input[type=range]')]) {
      one.addEventListener('dblclick', () => this.state.set({[name]: null}));
    }
    for (const on of ['pointerenter', 'focusin']) row.addEventListener(on, () => this.explain(parameter));
    for (const one of row.querySelectorAll('input, select, button')) {
      if (!one.getAttribute('aria-label') && one.id !== id) one.setAttribute('aria-label', parameter.label);
      one.setAttribute('aria-description', parameter.help);
    }
    return row;
  }

  // A key that is held down moves a value in many steps, and is one change.
  listenToHeldKeys(root) {
    root.addEventListener('keydown', (event) => {
      if (moving.has(event.key) && event.target.matches('input[type=range], input[type=number]')) this.held = true;
    });
    for (const end of ['keyup', 'focusout']) {
      root.addEventListener(end, () => {
        if (!this.held) return;
        this.held = false;
        this.state.commit();
      });
    }
  }

  /** Says what is wrong with a value, and keeps it there for a while. */
  warn(words) {
    this.warnedAt = performance.now();
    this.help.classList.add('warns');
    this.help.textContent = this.warned.textContent = words;
  }

  // Of a number in a shot: sets a key at the frame that is shown, or takes it away.
  key({name, label, type}) {
    if (!this.state.description.isShot || !['number', 'triple', 'colour'].includes(type)) return null;
    const button = element('button', {className: 'key'});
    button.setAttribute('aria-label', `${label}: key at this frame`);
    button.addEventListener('click', (event) => event.shiftKey ? this.state.reshape(name) : this.state.toggleKey(name));
    return button;
  }

  refreshKey(button, name) {
    const {moves, here} = this.state.keyed(name);
    const smooth = moves && this.state.settings[name].includes('smooth');
    button.textContent = here ? '\u25c6' : '\u25c7';
    button.classList.toggle('moves', moves);
    button.setAttribute('aria-pressed', String(here));
    button.title = !moves ? 'Make it move: a key at this frame'
      : `${here ? 'Take the key at this frame away' : 'A key at this frame'}. It moves ${smooth ? 'smoothly' : 'straight'} from key to key; Shift and click changes that`;
  }

  /** Says what a control does, unless something wrong is still to be read. */
  say(words) {
    if (performance.now() - this.warnedAt < warningMilliseconds) return;
    this.help.classList.remove('warns');
    this.help.textContent = words;
  }

  explain(parameter) {
    const {unit, low, high, label, help, standard, type} = parameter;
    const range = ['number', 'triple', 'colour'].includes(type) ? ` Unit: ${unit}, ${short(low)} to ${short(high)}.` : '';
    const usual = parameter.followsScreen ? '0.9 for a screen bluer than green, else 0.5' : standard;
    const choice = parameter.choices?.find((one) => one.text === this.state.text(parameter.name));
    const chosen = choice ? ` ${choice.label}: ${choice.help}.` : '';
    const named = parameter.choices?.find((one) => one.text === usual)?.label ?? usual;
    this.say(`${label}: ${help}${chosen}${range} Default: ${named}.`);
  }

  slider(parameter, changed, properties = {}) {
    const {softLow, softHigh} = parameter;
    const input = element('input', {type: 'range', min: softLow, max: softHigh, step: (softHigh - softLow) / 500, ...properties});
    input.addEventListener('input', () => changed(Number(input.value)));
    input.addEventListener('change', () => { if (!this.held) this.state.commit(); });
    return input;
  }

  field(parameter, changed, properties = {}) {
    const {low, high, softLow, softHigh} = parameter;
    const input = element('input', {type: 'number', min: low, max: high, step: 'any', ...properties});
    input.addEventListener('change', () => {
      const value = Number(input.value);
      const fine = input.value !== '' && value >= low && value <= high;
      input.classList.toggle('wrong', !fine);
      input.setAttribute('aria-invalid', String(!fine));
      if (fine) {
        this.warnedAt = -Infinity;
        changed(value);
        this.state.commit();
      } else {
        const found = input.value === '' ? 'found none' : `found ${input.value}`;
        this.warn(`${properties['aria-label'] ?? parameter.label}: expected a number from ${short(low)} to ${short(high)}, ${found}. It stays ${this.state.text(parameter.name)}.`);
      }
    });
    // What was not taken is not left standing.
    input.addEventListener('blur', () => { if (input.classList.contains('wrong')) this.refresh(); });
    // Arrows move by a hundredth of the slider, ten times finer with shift.
    input.addEventListener('keydown', (event) => {
      const way = {ArrowUp: 1, ArrowDown: -1}[event.key];
      if (!way) return;
      event.preventDefault();
      const step = (softHigh - softLow) / (event.shiftKey ? 1000 : 100);
      const value = Math.min(high, Math.max(low, Number(input.value) + way * step));
      input.value = short(value);
      changed(value);
    });
    return input;
  }

  put(input, value) {
    if (document.activeElement === input && input.type === 'number' && input.classList.contains('wrong')) return;
    input.classList.remove('wrong');
    input.removeAttribute('aria-invalid');
    input.value = input.type === 'number' ? short(value) : value;
  }

  number(parameter, id) {
    const change = (value) => this.state.change({[parameter.name]: short(value)});
    const slider = this.slider(parameter, change, {id});
    const field = this.field(parameter, change);
    return {
      elements: [slider, field],
      refresh: (text) => { this.put(slider, Number(text)); this.put(field, Number(text)); },
    };
  }

  // One slider for all channels together; three fields behind a button for each alone.
  triple(parameter, id) {
    const {name} = parameter;
    const all = (value) => this.state.change({[name]: short(value)});
    const slider = this.slider(parameter, all, {id});
    const field = this.field(parameter, all);
    const three = this.threeFields(parameter);
    const box = element('div', {className: 'rgb plain', hidden: true}, ...three);
    const more = element('button', {className: 'more', textContent: 'rgb', title: 'Channels one by one', 'aria-expanded': 'false'});
    more.addEventListener('click', () => {
      box.hidden = !box.hidden;
      more.setAttribute('aria-expanded', String(!box.hidden));
    });
    const holder = element('span', {style: 'display:flex;min-width:0'}, slider, more);
    return {
      elements: [holder, field, box],
      refresh: (text) => {
        const values = numbersOf(text, 3);
        const mean = (values[0] + values[1] + values[2]) / 3;
        this.put(slider, mean);
        this.put(field, mean);
        three.forEach((one, i) => this.put(one, values[i]));
      },
    };
  }

  threeFields(parameter) {
    const {name} = parameter;
    return channels.map((channel, i) => this.field(parameter, (value) => {
      const numbers = numbersOf(this.state.text(name), 3);
      numbers[i] = value;
      this.state.change({[name]: textOf(numbers)});
    }, {'aria-label': `${parameter.label}, ${channel}`}));
  }

  colour(parameter) {
    const swatch = element('button', {className: 'swatch', title: `Take the ${parameter.label.toLowerCase()} from the plate`});
    swatch.setAttribute('aria-label', `Pick the ${parameter.label.toLowerCase()} from the plate`);
    swatch.addEventListener('click', () => this.pick(parameter));
    const three = this.threeFields(parameter);
    return {
      elements: [element('div', {className: 'rgb'}, swatch, ...three)],
      refresh: (text) => {
        const values = numbersOf(text, 3);
        three.forEach((one, i) => this.put(one, values[i]));
        const codes = values.map((value) => Math.round(255 * Math.min(1, Math.max(0, value))));
        swatch.style.backgroundColor = `rgb(${codes.join(' ')})`;
      },
    };
  }

  choice(parameter, id) {
    const select = element('select', {id}, ...parameter.choices.map((one) =>
      element('option', {value: one.text, textContent: one.label, title: one.help})));
    select.addEventListener('change', () => this.state.set({[parameter.name]: select.value}));
    return {elements: [select], refresh: (text) => { select.value = text; }};
  }

  toggle(parameter, id) {
    const box = element('input', {type: 'checkbox', id});
    box.addEventListener('change', () => this.state.set({[parameter.name]: box.checked ? 'on' : 'off'}));
    return {elements: [box], refresh: (text) => { box.checked = text === 'on'; }};
  }

  channel(parameter, id) {
    const input = element('input', {type: 'text', id, maxLength: 64});
    input.addEventListener('change', () => this.state.set({[parameter.name]: input.value || null}));
    return {elements: [input], refresh: (text) => { input.value = text; }};
  }

  refresh() {
    for (const {parameter, row, key, refresh} of this.rows) {
      if (key) this.refreshKey(key, parameter.name);
      refresh(this.state.text(parameter.name));
      row.classList.toggle('given', parameter.name in this.state.settings);
    }
  }
}
