// The sample world deployment's page: a map from the standard WMS endpoint
// with a layer switcher and feature information on click, and a globe view
// from the native front door. Endpoints and defaults come from data
// attributes of <body>, the view from the address's hash
// (#center=lon,lat&zoom=z&globe=lon,lat&layers=a,b), which follows the page.
import 'ol/ol.css';
import './style.css';
import Map from 'ol/Map.js';
import View from 'ol/View.js';
import ImageLayer from 'ol/layer/Image.js';
import ImageWMS from 'ol/source/ImageWMS.js';
import MousePosition from 'ol/control/MousePosition.js';
import ScaleLine from 'ol/control/ScaleLine.js';
import {defaults as defaultControls} from 'ol/control/defaults.js';
import {toStringHDMS} from 'ol/coordinate.js';
import {fetchImage, fetchXml} from './server.js';
import {clearError, showError} from './messages.js';
import {LayerSwitcher, parseCapabilities} from './layers.js';
import {parseFeatureInfo, renderFeatureInfo} from './feature_info.js';
import {GlobeView, formatLatLon} from './globe.js';

const config = document.body.dataset;
const wmsUrl = config.wmsUrl || 'cgi-bin/wms';
const nativeUrl = config.nativeUrl || 'cgi-bin/map_server';
const worldExtent = [-180, -90, 180, 90];

function readHash() {
  const params = new URLSearchParams(window.location.hash.slice(1));
  const pair = (key) => {
    const values = (params.get(key) || '').split(',').map(Number);
    return values.length === 2 && values.every(Number.isFinite) ? values : null;
  };
  const zoom = Number(params.get('zoom'));
  return {
    center: pair('center'),
    zoom: params.has('zoom') && Number.isFinite(zoom) ? zoom : null,
    globe: pair('globe'),
    layers: params.has('layers') ? params.get('layers').split(',').filter(Boolean) : null,
  };
}

// Every image of the standard endpoint goes through fetch, so that an
// exception report becomes a message rather than a missing image.
function loadWmsImage(wrapper, src) {
  const image = wrapper.getImage();
  fetchImage(src)
    .then((blob) => {
      const objectUrl = URL.createObjectURL(blob);
      const release = () => URL.revokeObjectURL(objectUrl);
      image.addEventListener('load', release, {once: true});
      image.addEventListener('error', release, {once: true});
      image.src = objectUrl;
    })
    .catch((error) => {
      showError('Map', error.message);
      image.dispatchEvent(new Event('error'));
    });
}

function trackImages(source, element) {
  let loads = 0;
  source.on('imageloadstart', () => (element.dataset.status = 'loading'));
  source.on('imageloadend', () => {
    loads += 1;
    element.dataset.loads = String(loads);
    element.dataset.status = 'loaded';
    clearError('Map');
  });
  source.on('imageloaderror', () => {
    element.dataset.status = 'error';
    if (!document.querySelector('#messages [data-part="Map"]')) showError('Map', 'The map image could not be loaded.');
  });
}

async function start() {
  const state = readHash();
  const mapElement = document.getElementById('map');
  const infoElement = document.getElementById('info-body');

  let layers;
  try {
    layers = parseCapabilities(await fetchXml(`${wmsUrl}?SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities`));
  } catch (error) {
    showError('Capabilities', error.message);
    document.getElementById('layers').textContent = 'The layer list could not be read.';
    return;
  }
  if (layers.length === 0) {
    showError('Capabilities', 'The server offers no named layer.');
    return;
  }
  const defaults = (config.defaultLayers || 'world').split(',');
  const initial = state.layers || defaults.filter((name) => layers.some((layer) => layer.name === name));

  const source = new ImageWMS({
    url: wmsUrl,
    params: {LAYERS: '', FORMAT: 'image/jpeg', VERSION: '1.3.0', STYLES: ''},
    projection: 'EPSG:4326',
    ratio: 1,
    imageLoadFunction: loadWmsImage,
  });
  trackImages(source, mapElement);
  const imageLayer = new ImageLayer({source, extent: worldExtent});
  const view = new View({projection: 'EPSG:4326', extent: worldExtent, showFullExtent: true, constrainOnlyCenter: true});
  const map = new Map({
    target: mapElement,
    layers: [imageLayer],
    view,
    controls: defaultControls().extend([
      new ScaleLine(),
      new MousePosition({
        projection: 'EPSG:4326',
        coordinateFormat: (coordinate) => toStringHDMS(coordinate),
        className: 'ol-mouse-position',
      }),
    ]),
  });
  if (state.center && state.zoom !== null) {
    view.setCenter(state.center);
    view.setZoom(state.zoom);
  } else {
    view.fit(worldExtent, {size: map.getSize()});
  }

  let globe;
  const updateHash = () => {
    const center = view.getCenter();
    const params = new URLSearchParams();
    params.set('center', center.map((value) => value.toFixed(4)).join(','));
    params.set('zoom', view.getZoom().toFixed(2));
    if (globe) params.set('globe', globe.center().map((value) => value.toFixed(4)).join(','));
    params.set('layers', switcher.selected().join(','));
    // Commas stay readable in the address.
    history.replaceState(null, '', `#${params.toString().replace(/%2C/g, ',')}`);
  };

  const showLayers = (names) => {
    imageLayer.setVisible(names.length > 0);
    source.updateParams({LAYERS: names.join(',')});
    if (names.length === 0) showError('Map', 'No layer switched on.');
    else if (mapElement.dataset.status !== 'error') clearError('Map');
  };
  const switcher = new LayerSwitcher(document.getElementById('layers'), layers, initial, (names) => {
    showLayers(names);
    globe.setLayers(names);
    updateHash();
  });
  showLayers(switcher.selected());

  let infoSeq = 0;
  map.on('singleclick', async (event) => {
    const seq = ++infoSeq;
    const [lon, lat] = event.coordinate;
    const where = `At ${formatLatLon(lat, lon)}`;
    const queryLayers = switcher.queryable();
    if (queryLayers.length === 0) {
      renderFeatureInfo(infoElement, [], `${where}: no switched-on layer answers feature information.`);
      return;
    }
    const url = source.getFeatureInfoUrl(event.coordinate, view.getResolution(), 'EPSG:4326', {
      INFO_FORMAT: 'text/xml',
      QUERY_LAYERS: queryLayers.join(','),
      FEATURE_COUNT: 5,
    });
    infoElement.dataset.status = 'loading';
    try {
      const found = parseFeatureInfo(await fetchXml(url));
      if (seq !== infoSeq) return;
      renderFeatureInfo(infoElement, found, where);
      infoElement.dataset.status = 'loaded';
      clearError('Feature information');
    } catch (error) {
      if (seq !== infoSeq) return;
      infoElement.dataset.status = 'error';
      infoElement.textContent = '';
      showError('Feature information', error.message);
    }
  });

  globe = new GlobeView({
    nativeUrl,
    elevationLayer: config.elevationLayer || 'elevation',
    center: state.globe || [15, 45],
    layers: switcher.selected(),
    onCenterChange: updateHash,
  });
  map.on('moveend', updateHash);
  document.getElementById('globe-here').addEventListener('click', () => globe.setCenter(view.getCenter()));
}

start().catch((error) => showError('Page', error.message));
