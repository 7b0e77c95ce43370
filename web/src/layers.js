// The layer switcher, built from the standard endpoint's capabilities: one
// check box per named layer (the dataset's layers, then its groups). Layers
// are drawn in the order they were switched on, the last one on top.
import WMSCapabilities from 'ol/format/WMSCapabilities.js';

// Every named layer of a parsed capabilities document, depth first.
export function namedLayers(capabilities) {
  const found = [];
  const visit = (layer) => {
    if (!layer) return;
    if (layer.Name) {
      found.push({
        name: layer.Name,
        title: layer.Title || layer.Name,
        abstract: layer.Abstract || '',
        queryable: Boolean(layer.queryable),
      });
    }
    (layer.Layer || []).forEach(visit);
  };
  visit(capabilities?.Capability?.Layer);
  return found;
}

export function parseCapabilities(doc) {
  return namedLayers(new WMSCapabilities().read(doc));
}

export class LayerSwitcher {
  // layers: from parseCapabilities; initial: names to switch on (unknown
  // names are left out); onChange(names) after every change by the user.
  constructor(element, layers, initial, onChange) {
    this.layers_ = layers;
    this.onChange_ = onChange;
    const known = new Set(layers.map((layer) => layer.name));
    this.selected_ = initial.filter((name, i) => known.has(name) && initial.indexOf(name) === i);

    const list = document.createElement('ul');
    for (const layer of layers) {
      const item = document.createElement('li');
      const label = document.createElement('label');
      const box = document.createElement('input');
      box.type = 'checkbox';
      box.value = layer.name;
      box.checked = this.selected_.includes(layer.name);
      box.addEventListener('change', () => this.toggle_(layer.name, box.checked));
      label.append(box, ` ${layer.title}`);
      if (layer.queryable) label.title = 'Answers feature information requests';
      item.append(label);
      if (layer.abstract) {
        const note = document.createElement('small');
        note.textContent = layer.abstract;
        item.append(note);
      }
      list.append(item);
    }
    this.order_ = document.createElement('p');
    this.order_.className = 'order';
    element.replaceChildren(list, this.order_);
    this.showOrder_();
  }

  selected() {
    return [...this.selected_];
  }

  // The switched-on layers that answer feature information requests.
  queryable() {
    const queryable = new Set(this.layers_.filter((layer) => layer.queryable).map((layer) => layer.name));
    return this.selected_.filter((name) => queryable.has(name));
  }

  toggle_(name, on) {
    this.selected_ = this.selected_.filter((other) => other !== name);
    if (on) this.selected_.push(name);
    this.showOrder_();
    this.onChange_(this.selected());
  }

  showOrder_() {
    this.order_.textContent = this.selected_.length
      ? `Drawn bottom to top: ${this.selected_.join(', ')}`
      : 'No layer switched on.';
  }
}
