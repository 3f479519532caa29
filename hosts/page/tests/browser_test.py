# SPDX-License-Identifier: MIT
"""The page in a real browser: everything that moves, by mouse, finger and keys.

    browser_test.py PROGRAM [TEST...]

PROGRAM writes the pages into a folder. Where Debian's chromium or its driver is missing, the test is
skipped (status 77), but for DIFFUSEFILT_BROWSER=required in the environment.
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SKIPPED = 77
try:
    from selenium import webdriver
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.actions.action_builder import ActionBuilder
    from selenium.webdriver.common.actions.interaction import POINTER_TOUCH
    from selenium.webdriver.common.actions.pointer_input import PointerInput
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
    MISSING = [name for name in ("chromium", "chromedriver") if not shutil.which(name)]
except ImportError:
    MISSING = ["python3-selenium"]

DESKTOP, TELEPHONE = (1200, 900), (360, 740)


def start_browser():
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for argument in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(options=options,
                            service=webdriver.chrome.service.Service(shutil.which("chromedriver")))


class PageInBrowser(unittest.TestCase):
    program = None

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        subprocess.run([cls.program, cls.folder.name], check=True, timeout=300)
        cls.browser = start_browser()
        cls.addClassCleanup(cls.browser.quit)

    def open(self, name, size=DESKTOP, **features):
        """Opens a page, as wide and high, with media features such as prefers_color_scheme."""
        self.page = (pathlib.Path(self.folder.name) / name).as_uri()
        command = self.browser.execute_cdp_cmd
        command("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1,
            "mobile": size == TELEPHONE})
        command("Emulation.setEmulatedMedia", {"features": [
            {"name": key.replace("_", "-"), "value": value} for key, value in features.items()]})
        self.browser.get_log("performance")  # forgets what went before
        self.browser.get(self.page)

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [])
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                url = message["params"]["request"]["url"]
                self.assertTrue(url.startswith("data:") or url == self.page, url)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def run_script(self, text, *arguments):
        return self.browser.execute_script("return " + text, *arguments)

    def wait(self, condition):
        WebDriverWait(self.browser, 20).until(lambda _: condition())

    def loaded(self, image):
        return self.run_script("arguments[0].complete && arguments[0].naturalWidth > 0", image)

    def cut(self):
        """Where the picture before ends and the one after begins, in percent of the width."""
        return self.run_script("""(() => {
            const stage = document.querySelector('#compare .stage');
            stage.scrollIntoView({block: 'center'});
            const box = stage.getBoundingClientRect();
            const shown = (percent) => document.elementFromPoint(
                box.left + (box.width * percent) / 100, box.top + box.height / 3).className;
            const places = [...Array(100).keys()].map((i) => shown(i + 0.5));
            const cut = places.lastIndexOf('before') + 1;
            return places.every((name, i) => name === (i < cut ? 'before' : 'after')) ? cut : null;
        })()""")

    def press(self, element, *keys):
        self.run_script("arguments[0].focus()", element)
        for key in keys:
            self.browser.switch_to.active_element.send_keys(key)

    def drag(self, stage, start, end, kind=None):
        """From one place in the stage to another, as parts of its width from the middle."""
        # A finger must not lift where the browser may take it for a scroll.
        pointer = PointerInput(kind, "finger") if kind else None
        actions = ActionChains(self.browser, duration=50)
        if pointer:
            actions.w3c_actions = ActionBuilder(self.browser, mouse=pointer, duration=50)
        width = stage.size["width"]
        actions.move_to_element_with_offset(stage, round(start * width), 0).click_and_hold()
        actions.move_to_element_with_offset(stage, round(end * width), 0).release().perform()

    def test_the_divider_moves_by_mouse_finger_and_keys(self):
        self.open("picture.html")
        divider, stage = self.find("#divider"), self.find("#compare .stage")
        self.wait(lambda: all(map(self.loaded, self.all("#compare img"))))
        self.assertEqual(self.cut(), 50)
        self.drag(stage, 0, -0.25)
        self.assertAlmostEqual(self.cut(), 25, delta=1)
        self.drag(stage, -0.25, 0.3, POINTER_TOUCH)
        self.assertAlmostEqual(self.cut(), 80, delta=1)
        self.press(divider, Keys.ARROW_LEFT, Keys.ARROW_LEFT)
        self.assertAlmostEqual(self.cut(), 78, delta=1)
        for key, place in ((Keys.HOME, 0), (Keys.END, 100)):
            self.press(divider, key)
            self.assertEqual(self.cut(), place)
            self.assertIn(f"{place} %", divider.get_attribute("aria-valuetext"))

    def test_a_cell_is_enlarged_and_its_command_line_copied(self):
        self.open("picture.html")
        cells = self.all(".cell")
        self.assertEqual(len(cells), 15)
        chosen = self.find(".cell[aria-current]")
        self.press(chosen, Keys.ENTER)
        dialog, image = self.find("#enlarged"), self.find("#enlarged-image")
        self.assertTrue(dialog.is_displayed())
        self.wait(lambda: self.loaded(image))
        self.assertEqual(image.get_attribute("src"),
                         chosen.find_element(By.TAG_NAME, "img").get_attribute("src"))
        self.assertEqual(self.find("#commands code").text, "filter -k 30.000000 -n 3")
        self.press(self.find("#close"), Keys.ARROW_RIGHT, Keys.ARROW_DOWN)
        self.assertEqual(self.find("#commands code").text, "filter -k 42.400000 -n 6")
        self.assertEqual(self.find("#enlarged-title").text, "Threshold 42.4, 6 steps")
        after = image.get_attribute("src")
        self.press(self.find("#close"), "b")
        self.assertNotEqual(image.get_attribute("src"), after)
        self.assertIn("before", image.get_attribute("alt"))
        self.browser.execute_cdp_cmd("Browser.grantPermissions", {
            "permissions": ["clipboardReadWrite", "clipboardSanitizedWrite"]})
        self.find("#commands button").click()
        self.wait(lambda: self.find("#commands button").text == "Copied")
        self.assertEqual(self.run_script("navigator.clipboard.readText()"),
                         "filter -k 42.400000 -n 6")
        self.press(self.find("#close"), Keys.ESCAPE)
        self.assertFalse(dialog.is_displayed())
        self.assertEqual(self.browser.switch_to.active_element, cells[13])
        cells[0].click()
        self.assertTrue(dialog.is_displayed())
        self.find("#close").click()
        self.assertFalse(dialog.is_displayed())

    def test_the_point_in_a_volume_moves(self):
        self.open("volume.html")
        pictures = self.all("#compare .before")
        captions = self.all("#compare figcaption")
        self.wait(lambda: all(map(self.loaded, pictures)))
        self.assertEqual([caption.text.split(",")[0] for caption in captions],
                         ["Axial", "Coronal", "Sagittal"])
        sources = [picture.get_attribute("src") for picture in pictures]
        self.press(self.find("#point-z"), Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        self.assertEqual(captions[0].text, "Axial, slice 22 of 0 to 39")
        moved = [picture.get_attribute("src") for picture in pictures]
        self.assertNotEqual(moved[0], sources[0])
        self.assertEqual(moved[1:], sources[1:])
        self.assertNotEqual(self.all("#removed img")[0].get_attribute("src"), moved[0])
        # A place in the axial view, a quarter of its width to the left of the middle.
        self.drag(self.all("#compare .stage")[0], 0.1, -0.25)
        slices = {caption.text.split(",")[0]: int(caption.text.split()[2]) for caption in captions}
        self.assertAlmostEqual(slices["Sagittal"], 0.75 * 90, delta=2)  # mirrored: it runs to the right
        self.assertEqual(slices["Axial"], 22)
        self.wait(lambda: all(map(self.loaded, pictures)))
        # Across from front to back in the sagittal view, whose slices are 2.5 apart upwards.
        box = self.all("#compare .stage")[2].size
        self.assertAlmostEqual(box["width"] / box["height"], 110 / (2.5 * 40), delta=0.02)

    def test_a_large_picture_has_a_part_at_full_size(self):
        self.open("colour.html")
        self.assertEqual([figure.is_displayed() for figure in self.all("#compare figure")],
                         [True, False])
        self.press(self.all("input[name=view]")[0], Keys.ARROW_RIGHT)
        self.assertEqual([figure.is_displayed() for figure in self.all("#compare figure")],
                         [False, True])
        stage = self.all("#compare .stage")[1]
        for key, factor in ((Keys.ARROW_RIGHT, 1), (Keys.ARROW_RIGHT, 2)):
            self.press(self.find("input[name=zoom]:checked"), key)
            natural = self.run_script("arguments[0].querySelector('img').naturalWidth", stage)
            self.assertEqual(stage.size["width"], factor * natural)

    def test_it_serves_every_reader(self):
        cases = [("picture.html", DESKTOP, {}), ("colour.html", TELEPHONE, {}),
                 ("volume.html", TELEPHONE, {"prefers_color_scheme": "dark"}),
                 ("volume.html", DESKTOP, {"prefers_reduced_motion": "reduce"})]
        papers = {}
        for name, size, features in cases:
            with self.subTest(name, **features):
                self.open(name, size, **features)
                papers[features.get("prefers_color_scheme")] = self.run_script(
                    "getComputedStyle(document.body).backgroundColor")
                self.assertLessEqual(self.run_script("document.documentElement.scrollWidth"), size[0])
                moving = self.run_script("getComputedStyle(document.querySelector('.cell'))"
                                         ".transitionDuration")
                self.assertEqual(moving == "0s", "prefers_reduced_motion" in features)
                self.require_names()
                self.require_keys()
        self.assertNotEqual(papers["dark"], papers[None])

    def require_names(self):
        """Everything that is used or looked at has a name for a screen reader."""
        tree = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        used = [node for node in tree if not node.get("ignored") and node.get("role", {}).get("value")
                in ("button", "slider", "radio", "image", "region", "img", "group")]
        self.assertGreater(len(used), 20)
        for node in used:
            self.assertTrue(node["name"]["value"].strip(), node["role"])

    def require_keys(self):
        """The tabulator reaches every control that is shown, one of each set of radios."""
        wanted = {element.id for element in self.all("button, input[type=range], input:checked")
                  if element.is_displayed() or element.get_attribute("type") == "radio"}
        self.run_script("document.activeElement.blur()")
        reached = set()
        for _ in range(60):
            ActionChains(self.browser, duration=0).send_keys(Keys.TAB).perform()
            reached.add(self.browser.switch_to.active_element.id)
        self.assertLessEqual(wanted, reached)


def main():
    if MISSING:
        print(f"browser_test: skipped, {' and '.join(MISSING)} not installed "
              "(scripts/install-deps browser installs them)")
        return 1 if os.environ.get("DIFFUSEFILT_BROWSER") == "required" else SKIPPED
    PageInBrowser.program = sys.argv[1]
    result = unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2, exit=False).result
    return 0 if result.wasSuccessful() and result.testsRun > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
