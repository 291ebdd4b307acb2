// The recipe that `vorlen live` has put into the page: {name, bytes}, or null. bytes is a Uint8Array: the file as it is,
// in any encoding.
export function pageRecipe() {
  const recipe = JSON.parse(document.getElementById("recipe").textContent);
  if (recipe === null) return null;
  return { name: recipe.name, bytes: Uint8Array.from(atob(recipe.base64), (character) => character.charCodeAt(0)) };
}
