// Feature information from the standard endpoint (INFO_FORMAT=text/xml):
// a FeatureInfoResponse of Layer elements holding Feature elements with
// their attributes.

export function parseFeatureInfo(doc) {
  const root = doc.documentElement;
  if (!root || root.localName !== 'FeatureInfoResponse') {
    throw new Error(`Unexpected feature information document <${root ? root.localName : ''}>.`);
  }
  return [...root.children]
    .filter((element) => element.localName === 'Layer')
    .map((layer) => ({
      layer: layer.getAttribute('name') || '',
      features: [...layer.children]
        .filter((element) => element.localName === 'Feature')
        .map((feature) => ({
          id: feature.getAttribute('id') || '',
          type: feature.getAttribute('type') || '',
          attributes: [...feature.children]
            .filter((element) => element.localName === 'Attribute')
            .map((attribute) => ({
              name: attribute.getAttribute('name') || '',
              type: attribute.getAttribute('type') || '',
              value: attribute.textContent,
            })),
        })),
    }))
    .filter((layer) => layer.features.length > 0);
}

// A feature's heading: its first text attribute (the name in the sample
// data), else its type and id.
function featureTitle(feature) {
  const text = feature.attributes.find((attribute) => attribute.type === 'S' && attribute.value.trim());
  return text ? text.value : `${feature.type} ${feature.id}`.trim();
}

export function renderFeatureInfo(element, layers, where) {
  const parts = [];
  const heading = document.createElement('p');
  heading.className = 'where';
  heading.textContent = where;
  parts.push(heading);
  if (layers.length === 0) {
    const none = document.createElement('p');
    none.textContent = 'No feature here.';
    parts.push(none);
  }
  for (const layer of layers) {
    const section = document.createElement('section');
    const title = document.createElement('h3');
    title.textContent = layer.layer;
    section.append(title);
    for (const feature of layer.features) {
      const article = document.createElement('article');
      article.className = 'feature';
      const name = document.createElement('h4');
      name.textContent = featureTitle(feature);
      const table = document.createElement('table');
      for (const attribute of feature.attributes) {
        const row = table.insertRow();
        row.insertCell().textContent = attribute.name;
        row.insertCell().textContent = attribute.value;
      }
      article.append(name, table);
      section.append(article);
    }
    parts.push(section);
  }
  element.replaceChildren(...parts);
}
