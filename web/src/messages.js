// The message bar: one line per part of the page (map, feature information,
// globe, ...), replaced by the next message of that part and removed once the
// part works again.
const lines = new Map();

export function showError(part, text) {
  const bar = document.getElementById('messages');
  let line = lines.get(part);
  if (!line) {
    line = document.createElement('p');
    line.className = 'message';
    line.dataset.part = part;
    bar.append(line);
    lines.set(part, line);
  }
  line.textContent = `${part}: ${text}`;
  bar.hidden = false;
}

export function clearError(part) {
  const line = lines.get(part);
  if (!line) return;
  line.remove();
  lines.delete(part);
  document.getElementById('messages').hidden = lines.size === 0;
}
