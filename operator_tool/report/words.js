"use strict";
// Numbers, amounts and spans as finding/words.cpp writes them; tests/support/words.tsv holds both to
// the same texts.
const words = (() => {
  const format = (least, most) => new Intl.NumberFormat("en", {
    minimumFractionDigits: least, maximumFractionDigits: most, roundingMode: "halfEven"});
  const whole = format(0, 0);
  const fine = format(0, 2);
  const tenths = format(1, 1);
  const UNITS = ["KB", "MB", "GB", "TB", "PB", "EB"];
  const isKnown = (value) => value !== null && value !== undefined;

  const number = (value) => {
    if (!isKnown(value)) return "-";
    return (Math.abs(value) < 100 ? fine : whole).format(value);
  };
  const counted = (count, one, many) => number(count) + " " + (count === 1 ? one : many);

  // Of the unit that kilobytes are shown in.
  const powerOf = (kilobytes) => {
    let power = 0;
    while (kilobytes >= 1024 ** (power + 1) && power + 1 < UNITS.length) power += 1;
    return power;
  };
  const size = (kilobytes) => {
    if (!isKnown(kilobytes) || !(kilobytes >= 0)) return "-";
    const power = powerOf(kilobytes);
    const amount = kilobytes / 1024 ** power;
    return (amount < 10 && power ? tenths : whole).format(amount) + " " + UNITS[power];
  };

  const span = (seconds) => {
    if (seconds < 0) return "0 s";
    if (seconds < 120) return seconds + " s";
    if (seconds < 7200) return Math.floor(seconds / 60) + " min";
    const parts = (first, unit, rest, restUnit) => first + " " + unit + (rest ? " " + rest + " " + restUnit : "");
    if (seconds < 172800) return parts(Math.floor(seconds / 3600), "h", Math.floor(seconds % 3600 / 60), "min");
    return parts(Math.floor(seconds / 86400), "d", Math.floor(seconds % 86400 / 3600), "h");
  };

  // An axis from 0 to at least the largest value, in four steps at most: {top, step, label}. Sizes are
  // in one unit along the whole axis.
  const axis = (largest, isSize) => {
    const power = isSize ? powerOf(largest) : 0;
    const scale = 1024 ** power;
    const most = Math.max(largest / scale, 1);
    const decade = 10 ** Math.floor(Math.log10(most / 4));
    const nice = [1, 2, 5, 10].find((factor) => factor * decade * 4 >= most) * decade;
    const step = power ? nice : Math.max(nice, 1);
    const unit = isSize ? " " + UNITS[power] : "";
    return {top: Math.ceil(most / step) * step * scale, step: step * scale, label: (value) => number(value / scale) + unit};
  };

  return {number, counted, size, span, axis};
})();
