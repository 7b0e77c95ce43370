// Talking to the two front doors: images and XML documents fetched with a
// check of what came back, so that an exception report or a failed request
// becomes a readable message instead of a broken image.

// The text of a service exception report, or null when the document is not
// one. Both doors answer with a ServiceExceptionReport: the standard one with
// a code attribute and escaped text, the native one with plain lines that are
// not always well-formed XML (hence the fallback on the raw text).
export function exceptionMessage(text) {
  if (!/<ServiceExceptionReport[\s>]/.test(text)) return null;
  const doc = new DOMParser().parseFromString(text, 'application/xml');
  let parts;
  if (!doc.querySelector('parsererror')) {
    parts = [...doc.getElementsByTagName('ServiceException')].map((element) => {
      const code = element.getAttribute('code');
      const message = element.textContent.trim().replace(/\s*\n\s*/g, ' ');
      return code ? `${code}: ${message}` : message;
    });
  } else {
    parts = [...text.matchAll(/<ServiceException[^>]*>([\s\S]*?)<\/ServiceException>/g)].map(
      (match) => match[1].trim().replace(/\s*\n\s*/g, ' '),
    );
  }
  parts = parts.filter((part) => part.length > 0);
  return parts.length > 0 ? parts.join(' — ') : 'The server answered with an empty exception report.';
}

export class ServerError extends Error {}

async function failure(response) {
  const text = await response.text().catch(() => '');
  const reported = exceptionMessage(text);
  if (reported) return new ServerError(reported);
  if (!response.ok) return new ServerError(`HTTP ${response.status} ${response.statusText}`.trim());
  const type = response.headers.get('Content-Type') || 'no content type';
  return new ServerError(`Unexpected answer (${type}).`);
}

async function request(url, options) {
  try {
    return await fetch(url, options);
  } catch (error) {
    if (error.name === 'AbortError') throw error;
    throw new ServerError(`The server cannot be reached (${error.message}).`);
  }
}

// Fetches an image; resolves to a Blob, or rejects with a ServerError that
// carries the server's own message.
export async function fetchImage(url, options) {
  const response = await request(url, options);
  const type = response.headers.get('Content-Type') || '';
  if (!response.ok || !type.startsWith('image/')) throw await failure(response);
  return response.blob();
}

// Fetches an XML document; resolves to the parsed Document. Exception reports
// and documents that do not parse reject with a ServerError.
export async function fetchXml(url, options) {
  const response = await request(url, options);
  if (!response.ok) throw await failure(response);
  const text = await response.text();
  const reported = exceptionMessage(text);
  if (reported) throw new ServerError(reported);
  const doc = new DOMParser().parseFromString(text, 'application/xml');
  if (doc.querySelector('parsererror')) throw new ServerError('The server sent a document that is not valid XML.');
  return doc;
}

// The text of the first child element called name, or null.
export function childText(parent, name) {
  const element = parent.getElementsByTagName(name)[0];
  return element ? element.textContent.trim() : null;
}
