#!/usr/bin/python3
"""Opens pages in a headless browser, in light and dark, wide and narrow, and takes screenshots
beside them. Fails on script errors, requests, pages wider than the window, text that hardly stands
out from what is behind it, text that is small or lies over a plot, and tables with columns out of
sight."""

import json
import pathlib
import re
import sys

from selenium import webdriver

SCHEMES = ("light", "dark")
WIDTHS = (1280, 400)
LEAST_CONTRAST = 4.5
LEAST_PIXELS = 12
MOST_HEIGHT = 6000  # of a screenshot
# Under the pointer in the middle of some plot, by page.
VALUES = {
    "mix": (r"\nwave -?\d", r"\nblock \d+ frames", r"\ncycle .*\d ms"),
    "replay": (r"\nburst \d+.*\naudio lead [+-]?\d.* ms", r"\nblock \d+ frames"),
}

# Every piece of text against all that is painted behind its middle, shapes of pictures included.
LOOK = """
const context = document.createElement('canvas').getContext('2d', {willReadFrequently: true});
function rgba(colour) {
  context.clearRect(0, 0, 1, 1);
  context.fillStyle = colour;
  context.fillRect(0, 0, 1, 1);
  const data = context.getImageData(0, 0, 1, 1).data;
  return [data[0], data[1], data[2], data[3] / 255];
}
function luminance(colour) {
  const parts = colour.slice(0, 3).map(function (part) {
    const share = part / 255;
    return share <= 0.04045 ? share / 12.92 : Math.pow((share + 0.055) / 1.055, 2.4);
  });
  return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2];
}
function over(top, bottom) {
  return [0, 1, 2].map(i => top[i] * top[3] + bottom[i] * (1 - top[3])).concat(1);
}
const bare = document.createElement('style');
bare.textContent = '*{pointer-events:auto !important}';
document.head.append(bare);
const found = {pieces: 0, poor: [], small: [], worst: 99};
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walker.nextNode()) {
  const element = walker.currentNode.parentElement;
  if (!walker.currentNode.data.trim() || element.closest('script,style,svg')) continue;
  const range = document.createRange();
  range.selectNodeContents(walker.currentNode);
  const box = range.getClientRects()[0];
  if (!box || !box.width) continue;
  const x = box.left + box.width / 2, y = box.top + box.height / 2;
  const frame = element.closest('.scroll');
  const edge = frame && frame.getBoundingClientRect();
  if (x >= innerWidth || (edge && (y < edge.top || y > edge.bottom))) continue;  // scrolled out of sight
  const words = walker.currentNode.data.trim().slice(0, 40);
  const style = getComputedStyle(element);
  let back = rgba(getComputedStyle(document.documentElement).backgroundColor);
  if (back[3] < 1) back = over(back, matchMedia('(prefers-color-scheme:dark)').matches ? [18, 18, 18, 1] : [255, 255, 255, 1]);
  document.elementsFromPoint(x, y).reverse().forEach(function (behind) {
    const look = getComputedStyle(behind);
    back = over(rgba(look.backgroundColor), back);
    if (behind instanceof SVGGeometryElement && look.fill !== 'none') back = over(rgba(look.fill), back);
  });
  const fore = over(rgba(style.color), back);
  const [low, high] = [luminance(fore), luminance(back)].sort((a, b) => a - b);
  const contrast = (high + 0.05) / (low + 0.05);
  found.pieces += 1;
  found.worst = Math.min(found.worst, contrast);
  if (contrast < arguments[0]) found.poor.push(words + ': ' + contrast.toFixed(2));
  if (parseFloat(style.fontSize) < arguments[1]) found.small.push(words + ': ' + style.fontSize);
}
bare.remove();
found.covered = Array.from(document.querySelectorAll('.over')).filter(over => over.textContent.trim()).length;
found.hidden = Array.from(document.querySelectorAll('.scroll')).filter(box => box.scrollWidth > box.clientWidth)
  .map(box => box.getAttribute('aria-label'));
found.wide = document.documentElement.scrollWidth - innerWidth;
found.isDark = matchMedia('(prefers-color-scheme: dark)').matches;
return found;
"""


def browser():
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for switch in ("--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                   "--disable-dev-shm-usage"):
        options.add_argument(switch)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
    return webdriver.Chrome(service=service, options=options)


def resize(driver, width, height):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": width, "height": height, "deviceScaleFactor": 1,
                            "mobile": False})


def requests(driver):
    """What the page asked for since this was asked last."""
    urls = []
    for entry in driver.get_log("performance"):
        message = json.loads(entry["message"])["message"]
        if message["method"] == "Network.requestWillBeSent":
            urls.append(message["params"]["request"]["url"])
    return urls


def look(driver, page, scheme, width):
    """Complaints, and how much text was looked at."""
    address = page.resolve().as_uri()
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
        "features": [{"name": "prefers-color-scheme", "value": scheme}]})
    resize(driver, width, 900)
    driver.get(address)
    height = driver.execute_script("return document.documentElement.scrollHeight")
    resize(driver, width, height)  # what lies outside the window has nothing behind it
    # The pointer over a plot runs the page's script.
    readouts = []
    for plot in driver.find_elements("class name", "plot"):
        webdriver.ActionChains(driver).move_to_element(plot).perform()
        readouts.append(driver.execute_script("return document.getElementById('now').textContent"))
    found = driver.execute_script(LOOK, LEAST_CONTRAST, LEAST_PIXELS)
    complaints = [f"contrast of {words}" for words in found["poor"]]
    complaints += [f"small text: {words}" for words in found["small"]]
    complaints += [f"{entry['level']} {entry['message']}" for entry in driver.get_log("browser")]
    complaints += [f"asks for {url}" for url in requests(driver) if url != address]
    if found["wide"] > 0:
        complaints.append(f"{found['wide']} pixels wider than the window")
    if found["isDark"] != (scheme == "dark"):
        complaints.append("the browser does not follow the scheme: nothing was tested")
    complaints += [f"labels over plots: {found['covered']}"] if found["covered"] else []
    complaints += [f"columns out of sight: {name}" for name in found["hidden"]]
    for readout in readouts:
        if not re.match(r"\d+\.\d{3} s(\n|$)", readout):
            complaints.append(f"no time under the pointer: '{readout}'")
    for value in VALUES[page.stem]:
        if not any(re.search(value, readout) for readout in readouts):
            complaints.append(f"no plot has {value} under the pointer")
    resize(driver, width, min(height, MOST_HEIGHT))
    driver.execute_script("document.getElementById('now').textContent = '';"
                          "document.querySelectorAll('.hair').forEach(hair => hair.hidden = true)")
    driver.save_screenshot(str(page.with_name(f"{page.stem}-{scheme}-{width}.png")))
    return [f"{page.name}, {scheme}, {width} wide: {words}" for words in complaints], found


def main():
    complaints, pieces, worst, views = [], 0, 99, 0
    driver = browser()
    try:
        for page in map(pathlib.Path, sys.argv[1:]):
            for scheme in SCHEMES:
                for width in WIDTHS:
                    more, found = look(driver, page, scheme, width)
                    complaints += more
                    pieces += found["pieces"]
                    worst = min(worst, found["worst"])
                    views += 1
    finally:
        driver.quit()
    if complaints or pieces == 0:
        print("\n".join(complaints[:40]) or "no text was found")
        sys.exit(1)
    print(f"{len(sys.argv) - 1} pages in {views} views, {pieces} pieces of text, "
          f"least contrast {worst:.1f}; no script errors, no requests")


main()
