// The state of the page, kept across reloads where the browser allows it, and otherwise silently not.

const SIZE_MAX = 4e6; // characters; browsers keep about 5 million

// key tells pages apart, which share one storage when they are opened as files: their address and their own recipe.
export function pageKey(recipe) {
  let hash = 0;
  for (const code of recipe?.bytes ?? []) hash = (hash * 31 + code) | 0;
  return `vorlen-live ${location.pathname} ${recipe?.name ?? ""} ${hash}`;
}

export function stored(key) {
  try {
    return JSON.parse(localStorage.getItem(key));
  } catch {
    return null;
  }
}

export function store(key, state) {
  try {
    const text = JSON.stringify(state);
    if (text.length <= SIZE_MAX) localStorage.setItem(key, text);
    else if (state.growth) store(key, {...state, growth: undefined});
  } catch {
    // Storage that is full or forbidden: the page works without.
  }
}

export function forget(key) {
  try {
    localStorage.removeItem(key);
  } catch {
    // as above
  }
}
