// What a reader would see of a timeline's page, written at its end.
const all = (selector) => [...document.querySelectorAll(selector)];
const place = (element) => {
  const {left, right, top, bottom} = element.getBoundingClientRect();
  return {left, right, top, bottom};
};
// Relative luminance, and contrast, as WCAG defines them.
const luminance = (colour) => {
  const [red, green, blue] = colour.match(/[\d.]+/g).map((part) => part / 255)
    .map((part) => (part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4));
  return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
};
const contrast = (one, other) => {
  const [dark, light] = [luminance(one), luminance(other)].sort((a, b) => a - b);
  return (light + 0.05) / (dark + 0.05);
};
const style = (selector) => getComputedStyle(document.querySelector(selector));
const page = style('body').backgroundColor;

const measured = {
  width: innerWidth,
  pageWidth: document.documentElement.scrollWidth,
  plot: place(document.querySelector('.axis')),
  bars: all('rect.bar').map((bar) => ({title: bar.querySelector('title').textContent, ...place(bar)})),
  labels: all('.label').map((label) => ({text: label.firstChild.textContent, ...place(label)})),
  gap: document.querySelector('.gap') && place(document.querySelector('.gap')),
  marks: {
    change: all('path.change:not(.bar-end)').length,
    unreported: all('.unreported').length,
    slow: all('.slow').length,
    gap: all('.gap').length,
  },
  loads: performance.getEntriesByType('resource').map((resource) => resource.name),
  background: luminance(page),
  contrasts: [
    contrast(style('body').color, page), contrast(style('.soft').color, page), contrast(style('.label').fill, page),
    contrast(style('.note').fill, page), contrast(style('.in-bar').fill, style('rect.bar').fill),
  ],
  description: document.querySelector('svg[role=img]').getAttribute('aria-labelledby').split(' ')
    .map((id) => document.getElementById(id).textContent).join(' '),
};
const output = document.createElement('output');
output.id = 'measured';
output.textContent = btoa(unescape(encodeURIComponent(JSON.stringify(measured))));
document.body.append(output);
