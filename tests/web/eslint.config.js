import js from "@eslint/js";
import globals from "globals";

const rules = {
  eqeqeq: "error",
  "no-var": "error",
  "prefer-const": "error",
  "no-shadow": "error",
  "max-lines-per-function": ["error", { max: 40 }],
};

export default [
  { ignores: ["web/vendor/", "**/node_modules/"] },
  js.configs.recommended,
  { files: ["web/**/*.js"], languageOptions: { globals: globals.browser }, rules },
  {
    files: ["tests/web/**/*.js", "benchmarks/*.js", "docs/**/*.js"],
    languageOptions: { globals: { ...globals.browser, ...globals.node } },
    rules: { ...rules, "max-lines-per-function": "off" },
  },
];
