// The globe view: the native front door's orthographic GetMap
// (SRS=AUTO:42003,9001,lon,lat) as one image. Dragging turns the globe and
// asks for a new image centred where the drag leaves it; the pointer's
// position is turned into lat/lon by a native GetFeatureInfo
// (INFO_TYPE=lat_lon) and the elevation there comes from GetLocationInfo
// (INFO_TYPE=elevation). Native queries are read exactly as written: keys
// in capitals, SRS before BBOX, longitude first, no percent-encoding.
import {childText, fetchImage, fetchXml} from './server.js';
import {clearError, showError} from './messages.js';

const kEquatorialRadius = 6378136; // metres: the server's globe
const kDegrees = 180 / Math.PI;

export function wrapLongitude(lon) {
  const wrapped = ((((lon + 180) % 360) + 360) % 360) - 180;
  return wrapped === -180 && lon > 0 ? 180 : wrapped;
}

// The centre after a drag of (dx, dy) screen pixels on a globe of the given
// radius in pixels: the point under the pointer follows it, to first order.
export function draggedCenter([lon, lat], dx, dy, radius) {
  return normalizeCenter([lon - (dx / radius) * kDegrees, lat + (dy / radius) * kDegrees]);
}

function normalizeCenter([lon, lat]) {
  return [wrapLongitude(lon), Math.max(-90, Math.min(90, lat))];
}

function formatDegrees(value, positive, negative) {
  return `${Math.abs(value).toFixed(2)}° ${value >= 0 ? positive : negative}`;
}

export function formatLatLon(lat, lon) {
  return `${formatDegrees(lat, 'N', 'S')}, ${formatDegrees(lon, 'E', 'W')}`;
}

export class GlobeView {
  constructor({nativeUrl, elevationLayer, center, layers, size = 360, halfExtent = 6.8e6, onCenterChange}) {
    this.url_ = nativeUrl;
    this.elevationLayer_ = elevationLayer;
    this.center_ = normalizeCenter(center);
    this.layers_ = layers;
    this.size_ = size;
    this.halfExtent_ = halfExtent;
    this.onCenterChange_ = onCenterChange;
    this.loads_ = 0;
    this.loadSeq_ = 0;
    this.querySeq_ = 0;
    this.shownView_ = null;
    this.drag_ = null;

    this.element_ = document.getElementById('globe');
    this.image_ = document.getElementById('globe-image');
    this.error_ = document.getElementById('globe-error');
    this.centerLabel_ = document.getElementById('globe-center');
    this.readout_ = document.getElementById('globe-readout');
    this.image_.width = this.image_.height = size;
    this.element_.style.width = this.element_.style.height = `${size}px`;
    this.listen_();
    this.load_();
  }

  setLayers(layers) {
    this.layers_ = layers;
    this.load_();
  }

  setCenter(center) {
    this.center_ = normalizeCenter(center);
    this.onCenterChange_(this.center_);
    this.load_();
  }

  center() {
    return [...this.center_];
  }

  // Globe radius on the image, in pixels.
  radius_() {
    return (kEquatorialRadius * this.size_) / (2 * this.halfExtent_);
  }

  viewQuery_() {
    const [lon, lat] = this.center_.map((value) => value.toFixed(4));
    const h = Math.round(this.halfExtent_);
    return `VERSION=1.3.0&SRS=AUTO:42003,9001,${lon},${lat}&BBOX=${-h},${-h},${h},${h}&WIDTH=${this.size_}&HEIGHT=${this.size_}`;
  }

  showCenter_(center, pending) {
    this.centerLabel_.textContent = `Centre ${formatLatLon(center[1], center[0])}${pending ? ' (release to turn)' : ''}`;
  }

  fail_(message) {
    this.element_.dataset.status = 'error';
    this.image_.hidden = true;
    this.image_.style.transform = '';
    this.error_.textContent = message;
    this.error_.hidden = false;
    this.shownView_ = null;
    showError('Globe', message);
  }

  async load_() {
    const seq = ++this.loadSeq_;
    this.controller_?.abort();
    this.controller_ = new AbortController();
    this.showCenter_(this.center_, false);
    this.querySeq_ += 1; // answers for the previous view are dropped
    this.showReadout_('Point at the globe for the elevation.', {});
    this.element_.dataset.center = this.center_.map((value) => value.toFixed(4)).join(',');
    if (this.layers_.length === 0) {
      this.fail_('No layer switched on.');
      return;
    }
    const view = this.viewQuery_();
    const url = `${this.url_}?${view}&REQUEST=GetMap&FORMAT=image/jpeg&LAYERS=${this.layers_.join(',')}`;
    this.element_.dataset.status = 'loading';
    let blob;
    try {
      blob = await fetchImage(url, {signal: this.controller_.signal});
    } catch (error) {
      if (error.name !== 'AbortError' && seq === this.loadSeq_) this.fail_(error.message);
      return;
    }
    if (seq !== this.loadSeq_) return;
    const objectUrl = URL.createObjectURL(blob);
    this.image_.onload = () => {
      URL.revokeObjectURL(objectUrl);
      if (seq !== this.loadSeq_) return;
      this.image_.style.transform = '';
      this.image_.hidden = false;
      this.error_.hidden = true;
      this.shownView_ = view;
      this.loads_ += 1;
      this.element_.dataset.loads = String(this.loads_);
      this.element_.dataset.status = 'loaded';
      clearError('Globe');
    };
    this.image_.onerror = () => {
      URL.revokeObjectURL(objectUrl);
      if (seq === this.loadSeq_) this.fail_('The globe image cannot be decoded.');
    };
    this.image_.src = objectUrl;
  }

  // Pixel of the image under a pointer event (the image is shown at its size).
  pixelOf_(event) {
    const rect = this.element_.getBoundingClientRect();
    return [((event.clientX - rect.left) * this.size_) / rect.width, ((event.clientY - rect.top) * this.size_) / rect.height];
  }

  listen_() {
    const element = this.element_;
    element.addEventListener('pointerdown', (event) => {
      if (event.button !== 0) return;
      event.preventDefault();
      element.setPointerCapture(event.pointerId);
      this.drag_ = {x: event.clientX, y: event.clientY, id: event.pointerId};
      element.classList.add('dragging');
    });
    element.addEventListener('pointermove', (event) => {
      if (this.drag_ && event.pointerId === this.drag_.id) {
        const dx = event.clientX - this.drag_.x, dy = event.clientY - this.drag_.y;
        this.image_.style.transform = `translate(${dx}px, ${dy}px)`;
        this.showCenter_(draggedCenter(this.center_, dx, dy, this.radius_()), true);
      } else if (!this.drag_) {
        this.scheduleQuery_(...this.pixelOf_(event));
      }
    });
    const endDrag = (event, apply) => {
      if (!this.drag_ || event.pointerId !== this.drag_.id) return;
      const dx = event.clientX - this.drag_.x, dy = event.clientY - this.drag_.y;
      this.drag_ = null;
      element.classList.remove('dragging');
      if (apply && Math.hypot(dx, dy) >= 3) {
        this.setCenter(draggedCenter(this.center_, dx, dy, this.radius_()));
      } else {
        this.image_.style.transform = '';
        this.showCenter_(this.center_, false);
      }
    };
    element.addEventListener('pointerup', (event) => endDrag(event, true));
    element.addEventListener('pointercancel', (event) => endDrag(event, false));
    element.addEventListener('pointerleave', () => clearTimeout(this.queryTimer_));
    element.addEventListener('keydown', (event) => {
      const steps = {ArrowLeft: [-10, 0], ArrowRight: [10, 0], ArrowUp: [0, 10], ArrowDown: [0, -10]};
      const step = steps[event.key];
      if (!step) return;
      event.preventDefault();
      this.setCenter([this.center_[0] + step[0], this.center_[1] + step[1]]);
    });
  }

  scheduleQuery_(x, y) {
    clearTimeout(this.queryTimer_);
    this.queryTimer_ = setTimeout(() => this.queryElevation_(Math.floor(x), Math.floor(y)), 120);
  }

  showReadout_(text, data) {
    this.readout_.textContent = text;
    for (const key of ['lat', 'lon', 'elevation']) {
      if (data[key] === undefined) delete this.readout_.dataset[key];
      else this.readout_.dataset[key] = String(data[key]);
    }
  }

  async queryElevation_(i, j) {
    const view = this.shownView_;
    if (!view || i < 0 || j < 0 || i >= this.size_ || j >= this.size_) return;
    const seq = ++this.querySeq_;
    const layer = this.elevationLayer_;
    try {
      const point = await fetchXml(
        `${this.url_}?${view}&REQUEST=GetFeatureInfo&QUERY_LAYERS=${layer}&INFO_TYPE=lat_lon&I=${i}&J=${j}&INFO_FORMAT=text/xml`,
      );
      if (seq !== this.querySeq_) return;
      if (childText(point.documentElement, 'QueryException') !== 'None') {
        this.showReadout_('Off the globe.', {});
        return;
      }
      const lat = Number(childText(point.documentElement, 'Lat'));
      const lon = Number(childText(point.documentElement, 'Lon'));
      const answer = await fetchXml(
        `${this.url_}?${view}&REQUEST=GetLocationInfo&QUERY_LAYERS=${layer}&INFO_TYPE=elevation&LON_LAT=${lon.toFixed(6)},${lat.toFixed(6)}&INFO_FORMAT=text/xml`,
      );
      if (seq !== this.querySeq_) return;
      const where = formatLatLon(lat, lon);
      if (childText(answer.documentElement, 'QueryException') !== 'None') {
        this.showReadout_(`${where}: no elevation data`, {lat, lon, elevation: 'none'});
      } else {
        const elevation = Math.round(Number(childText(answer.documentElement, 'Elevation')));
        this.showReadout_(`${where}: elevation ${elevation} m`, {lat, lon, elevation});
      }
      clearError('Elevation');
    } catch (error) {
      if (seq === this.querySeq_) showError('Elevation', error.message);
    }
  }
}
