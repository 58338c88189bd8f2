#!/usr/bin/env python3
"""The gallery as a browser sees it: kxfx writes the page for a small copy of the sample photograph,
headless Chromium loads it, and the page's own script must report every tile's images loaded. A screenshot
of the whole page is kept beside the gallery."""
import argparse
import html.parser
import pathlib
import shutil
import subprocess
import sys
import tempfile

BROWSERS = ("chromium", "chromium-browser")
WINDOW_WIDTH = 1400
# Chromium draws no taller screenshot than this.
MAX_HEIGHT = 16384


class PageFacts(html.parser.HTMLParser):
    """The body's data attributes and each tile's data-loaded mark, from the page as the browser left it."""

    def __init__(self):
        super().__init__()
        self.body = {}
        self.tiles = {}

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        if tag == "body":
            self.body = attributes
        elif tag == "article" and "tile" in (attributes.get("class") or "").split():
            self.tiles[attributes.get("id")] = attributes.get("data-loaded")


def chromium(browser, profile, *arguments):
    command = [browser, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
               "--hide-scrollbars", f"--user-data-dir={profile}", "--virtual-time-budget=10000", *arguments]
    return subprocess.run(command, capture_output=True, text=True, timeout=180, check=True).stdout


def registered_effects(kxfx):
    """The effect rows of kxfx list: neither a family heading nor an indented setting."""
    listing = subprocess.run([kxfx, "list"], capture_output=True, text=True, check=True).stdout
    return [line.split()[0] for line in listing.splitlines() if line and not line.startswith((" ", "----"))]


def make_gallery(kxfx, photo, folder, width):
    shutil.rmtree(folder, ignore_errors=True)
    run = subprocess.run([kxfx, "gallery", photo, str(folder), "--size", str(width)], capture_output=True,
                         text=True)
    lines = run.stdout.splitlines()
    if run.returncode != 0 or not lines or not lines[-1].endswith("index.html"):
        sys.exit(f"FAIL: kxfx gallery exited with {run.returncode}:\n{run.stdout}{run.stderr}")
    print(lines[-1])
    return folder / "index.html"


def check_page(facts, effects):
    failures = []
    if sorted(facts.tiles) != sorted(effects):
        failures.append(f"tiles {sorted(set(facts.tiles) ^ set(effects))} differ from the registered effects")
    not_loaded = [name for name, loaded in facts.tiles.items() if loaded != "yes"]
    if not_loaded:
        failures.append(f"images not loaded in the tiles of {not_loaded}")
    if facts.body.get("data-loaded-tiles") != str(len(effects)):
        failures.append(f"the page counts {facts.body.get('data-loaded-tiles')} loaded tiles of {len(effects)}")
    return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--kxfx", required=True)
    parser.add_argument("--photo", required=True)
    parser.add_argument("--work", required=True, type=pathlib.Path)
    parser.add_argument("--width", type=int, default=160)
    options = parser.parse_args()
    browser = next((path for path in map(shutil.which, BROWSERS) if path), None)
    if browser is None:
        print("FAIL: Chromium is not installed; the gallery page test needs headless Chromium (Debian package "
              "chromium, installed by scripts/install-deps.sh)", file=sys.stderr)
        return 1
    page = make_gallery(options.kxfx, options.photo, options.work / "gallery", options.width)
    with tempfile.TemporaryDirectory(dir=options.work) as profile:
        facts = PageFacts()
        facts.feed(chromium(browser, profile, f"--window-size={WINDOW_WIDTH},900", "--dump-dom", page.as_uri()))
        failures = check_page(facts, registered_effects(options.kxfx))
        height = min(int(facts.body.get("data-page-height", "900")), MAX_HEIGHT)
        screenshot = options.work / "gallery.png"
        screenshot.unlink(missing_ok=True)
        chromium(browser, profile, f"--window-size={WINDOW_WIDTH},{height}", f"--screenshot={screenshot}",
                 page.as_uri())
    if not screenshot.is_file() or not screenshot.read_bytes().startswith(b"\x89PNG"):
        failures.append(f"no screenshot at {screenshot}")
    for failure in failures:
        print("FAIL:", failure, file=sys.stderr)
    if not failures:
        print(f"{len(facts.tiles)} of {len(facts.tiles)} tiles loaded in Chromium; screenshot {screenshot}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
