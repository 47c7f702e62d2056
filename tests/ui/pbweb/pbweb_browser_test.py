#!/usr/bin/python3
"""The phonebook page in a real browser: headless chromium driven through
selenium, against pbweb, pb_host and the modem simulator daemon.

Walks through what a person does: waits out the SIM being read, adds a
Cyrillic name on the SIM (with the live checks pbweb answers), edits and deletes it,
imports a file into the device phonebook, exports it in every format and
imports each download back as the same phonebook, deletes several entries,
sees a hostile name shown as text, meets an entry changed meanwhile (409),
deletes a whole phonebook behind the typed confirmation, and logs in to and
out of a pbweb with a password. Screenshots of
each stage stay in the work folder. Exits 77 (skipped) when chromium, its
driver or selenium are not installed.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import urllib.request

try:
    from selenium.common.exceptions import NoAlertPresentException, StaleElementReferenceException
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support import expected_conditions as EC
    from selenium.webdriver.support.ui import Select, WebDriverWait
    import pbweb_rig as rig
except ImportError:
    print("skipped: python3-selenium is not installed")
    sys.exit(77)

WAIT = rig.WAIT

CARD = """card 30 25 20
1,+4930123456,Zoë Müller
2,84957654321,Дмитрий
4,+8613800138000,王小明
5,112,Emergency
"""
IMPORT = "".join(f"BEGIN:VCARD\r\nVERSION:3.0\r\nFN:{name}\r\n{more}END:VCARD\r\n" for name, more in (
    ("Jürgen Groß", "TEL;TYPE=cell:+49 171 1234567\r\nEMAIL:j@example.de\r\n"),
    ("Renée Dubois", "TEL:+33142868200\r\n"), ("José Núñez", "TEL:+34911234567\r\n"), ("Flowers", "TEL:1-800-FLOWERS\r\n")))
XSS = "<img src=x onerror=alert(1)>"


class Page:
    def __init__(self, driver, url, shots):
        self.d = driver
        self.url = url
        self.shots = shots
        self.n = 0

    def el(self, css):
        return self.d.find_element(By.CSS_SELECTOR, css)

    def wait(self, cond, what):
        return WebDriverWait(self.d, WAIT, poll_frequency=0.1, ignored_exceptions=(StaleElementReferenceException,)
                             ).until(lambda d: cond(), message=what)

    def shot(self, name):
        self.n += 1
        self.d.save_screenshot(os.path.join(self.shots, f"{self.n:02d}-{name}.png"))

    def rows(self):
        return self.d.find_elements(By.CSS_SELECTOR, "#rows tr")

    def names(self):
        # In one go: the table is redrawn whenever a list arrives.
        return self.d.execute_script(
            "return [...document.querySelectorAll('#rows td.c-name')].map((e) => e.textContent)")

    def row_button(self, name, label):
        for tr in self.d.find_elements(By.CSS_SELECTOR, "#rows tr"):
            if tr.find_element(By.CSS_SELECTOR, "td.c-name").text == name:
                return tr.find_element(By.XPATH, f".//button[text()='{label}']")
        raise AssertionError(f"no row named {name!r} in {self.names()}")

    def state(self):
        """The state word of the panel shown instead of the list, "" when none."""
        return self.d.execute_script(
            "const s = document.getElementById('state'); return s.hidden ? '' : s.dataset.state")

    def import_file(self, path):
        self.el("#import-open").click()
        self.wait(lambda: self.el("#import-dialog").is_displayed(), "the import dialog")
        self.el("#import-file").send_keys(path)
        self.el("#import-ok").click()
        self.wait(lambda: not self.el("#import-dialog").is_displayed(), "the import dialog closed")

    def message(self):
        return self.el("#message").text

    def error(self):
        return self.el("#error").text

    def fill(self, css, text):
        e = self.el(css)
        e.send_keys(Keys.CONTROL, "a")
        e.send_keys(Keys.DELETE)
        e.send_keys(text)


def http(url, method, path, body):
    req = urllib.request.Request(url + path, method=method, data=json.dumps(body).encode(),
                                 headers={"Content-Type": "application/json", "Origin": url})
    with urllib.request.urlopen(req, timeout=WAIT) as r:
        return json.load(r)


def http_get(url, path):
    with urllib.request.urlopen(url + path, timeout=WAIT) as r:
        return json.load(r)


def run(page, url, work, card_path, downloads):
    p = page
    # The SIM is still being read (the simulator answers slowly): the page
    # says so, then shows the list by itself.
    p.d.get(url)
    p.wait(lambda: p.state() == "reading" or p.names(), "the reading state or the list")
    if p.state() == "reading":
        assert "Reading the SIM phonebook" in p.el("#state").text
        assert not p.el("#add").is_enabled()
        p.shot("sim-being-read")
    p.wait(lambda: len(p.names()) == 4, "the SIM list")
    assert p.names() == ["Zoë Müller", "Дмитрий", "王小明", "Emergency"], p.names()
    p.wait(lambda: p.el("#count-sim").text == "4/30", "the SIM count")
    p.shot("sim-list")

    # Add a Cyrillic name on the SIM, with the live checks on the way.
    p.el("#add").click()
    p.wait(lambda: p.el("#entry-dialog").is_displayed(), "the add form")
    # The hints are pbweb's answers (its check of the fields), not rules of
    # the page: they follow the typing.
    p.fill("#f-name", "Ольга Котова-Водкина")
    p.wait(lambda: "UCS-2, 41 of 25 octets: too long for this card" in p.el("#h-name").text, "a name too long")
    p.fill("#f-name", "Ольга Котова")
    p.wait(lambda: "UCS-2, 25 of 25 octets" in p.el("#h-name").text, "the name's octets on the card")
    assert "27 bytes left of 50" in p.el("#h-name").text, p.el("#h-name").text
    p.fill("#f-number", "+7 495 \u260e")
    p.wait(lambda: "at place 8 cannot be part of a number" in p.el("#h-number").text, "the number refused")
    p.fill("#f-number", "Tel: +7 (495) 111–22–33")
    p.wait(lambda: "Stored as +74951112233" in p.el("#h-number").text, "the number as stored")
    assert "11 of 20 digits" in p.el("#h-number").text, p.el("#h-number").text
    p.shot("add-form")
    p.el("#entry-save").click()
    p.wait(lambda: "Ольга Котова" in p.names(), "the new SIM entry")
    assert p.message().startswith("Added entry 5"), p.message()
    p.wait(lambda: "Ольга Котова" in open(card_path, encoding="utf-8").read(), "the card holding it")

    # Edit it, then delete it with the confirmation.
    p.row_button("Ольга Котова", "Edit").click()
    p.wait(lambda: p.el("#entry-dialog").is_displayed(), "the edit form")
    p.fill("#f-name", "Ольга П.")
    p.el("#entry-save").click()
    p.wait(lambda: "Ольга П." in p.names(), "the edited entry")
    p.row_button("Ольга П.", "Delete").click()
    p.wait(lambda: p.el("#confirm-dialog").is_displayed(), "the delete question")
    assert "Ольга П." in p.el("#confirm-text").text
    p.el("#confirm-ok").click()
    p.wait(lambda: "Ольга П." not in p.names() and len(p.names()) == 4, "the entry gone")

    # The device phonebook: import a file and see the result.
    p.el("#tab-device").click()
    p.wait(lambda: p.el("#import-open").is_displayed(), "the device tab")
    src = os.path.join(work, "contacts.vcf")
    with open(src, "w", encoding="utf-8") as f:
        f.write(IMPORT)
    p.import_file(src)
    p.wait(lambda: len(p.names()) == 3, "the imported entries")
    assert p.message() == "Added 3 of 4 contacts from contacts.vcf (vcard) to the device phonebook.", p.message()
    assert p.el("#report li.bad").text == "line 17: Flowers 1-800-FLOWERS: not added: the number cannot be stored", p.el("#report").text

    # A hostile name is shown as text, nothing runs and nothing loads.
    p.el("#add").click()
    p.fill("#f-name", XSS)
    p.fill("#f-number", "0800 123")
    p.el("#entry-save").click()
    p.wait(lambda: XSS in p.names(), "the hostile name as text")
    assert not p.d.find_elements(By.CSS_SELECTOR, "#rows img")
    try:
        p.d.switch_to.alert
        raise AssertionError("the name ran as script")
    except NoAlertPresentException:
        pass
    p.shot("device-list")

    # Copy it to the SIM: the card cannot hold the name, and the report says so.
    box = p.row_button(XSS, "Edit").find_element(By.XPATH, "../../td[1]/input")
    box.click()
    p.el("#copy-selected").click()
    p.wait(lambda: p.el("#report li.bad").is_displayed(), "the copy report")
    assert p.message() == "Added 0 of 1 contact of the device phonebook to the SIM phonebook.", p.message()
    assert p.el("#report li.bad").text.startswith(f"index 4: {XSS} 0800123: not added: "), p.el("#report").text
    p.shot("copy-report")
    box.click()

    # Export all: a CSV download unless told.
    assert Select(p.el("#export-format")).first_selected_option.get_attribute("value") == "csv"
    p.el("#export-all").click()
    target = os.path.join(downloads, "device-phonebook.csv")
    p.wait(lambda: os.path.exists(target) and open(target, encoding="utf-8", newline="").read().count("\n") == 5,
           "the export")
    text = open(target, encoding="utf-8", newline="").read()
    assert text.startswith("name,number,email\r\nJürgen Groß,+491711234567,j@example.de\r\n"), text

    # Every format the page offers reads back as the same phonebook: export
    # all, delete all, import the download.
    def rows():
        return [tuple(td.text for td in tr.find_elements(By.CSS_SELECTOR, ".c-name, .c-number, .c-email"))
                for tr in p.d.find_elements(By.CSS_SELECTOR, "#rows tr")]
    before = rows()
    assert len(before) == 4, before
    # The router's own lines come as a backup text file.
    for fmt, name, records in (("csv", "device-phonebook.csv", b"\r\n"), ("vcard", "device-phonebook.vcf", b"END:VCARD"),
                               ("module", "device-phonebook.txt", b"\n")):
        download = os.path.join(downloads, name)
        if fmt != "csv":
            Select(p.el("#export-format")).select_by_value(fmt)
            p.el("#export-all").click()
            p.wait(lambda: os.path.exists(download) and open(download, "rb").read().count(records) == 4,
                   f"the {fmt} export")
        p.el("#delete-all").click()
        p.wait(lambda: p.el("#confirm-input").is_displayed(), "the typed confirmation")
        p.el("#confirm-input").send_keys("delete all")
        p.el("#confirm-ok").click()
        p.wait(lambda: p.el("#empty").is_displayed(), "the empty phonebook")
        p.import_file(download)
        p.wait(lambda: len(p.names()) == 4, f"the {fmt} file imported")
        assert rows() == before, (fmt, rows(), before)
    Select(p.el("#export-format")).select_by_value("csv")

    # Several at once: select two and delete them.
    for name in ("Renée Dubois", "José Núñez"):
        box = p.row_button(name, "Edit").find_element(By.XPATH, "../../td[1]/input")
        box.click()
    assert p.el("#delete-selected").text == "Delete selected (2)"
    p.el("#delete-selected").click()
    p.wait(lambda: p.el("#confirm-dialog").is_displayed(), "the delete question")
    p.el("#confirm-ok").click()
    p.wait(lambda: p.names() == ["Jürgen Groß", XSS], "two entries gone")

    # Another client changes the entry while its form is open: 409, the page
    # says so and shows the list as it is now.
    p.row_button("Jürgen Groß", "Edit").click()
    p.wait(lambda: p.el("#entry-dialog").is_displayed(), "the edit form")
    http(url, "PUT", "/api/device/entries/1", {"name": "Jürgen G."})
    p.fill("#f-name", "Jürgen Groß-Meier")
    p.el("#entry-save").click()
    p.wait(lambda: "changed meanwhile" in p.error(), "the 409 message")
    assert p.error().startswith("The entry was changed meanwhile"), p.error()
    p.wait(lambda: "Jürgen G." in p.names(), "the list read again")
    assert not p.el("#entry-dialog").is_displayed()
    p.shot("changed-meanwhile")

    # Delete all only after typing the confirmation.
    p.el("#delete-all").click()
    p.wait(lambda: p.el("#confirm-input").is_displayed(), "the typed confirmation")
    assert not p.el("#confirm-ok").is_enabled()
    p.el("#confirm-input").send_keys("delete all")
    assert p.el("#confirm-ok").is_enabled()
    p.el("#confirm-ok").click()
    p.wait(lambda: p.el("#empty").is_displayed(), "the empty phonebook")
    assert p.message() == "Deleted all 2 entries of the device phonebook.", p.message()
    assert p.el("#empty").text.startswith("The device phonebook is empty."), p.el("#empty").text

    # Keyboard alone: arrow keys switch tabs.
    p.el("#tab-device").send_keys(Keys.ARROW_LEFT)
    p.wait(lambda: p.el("#tab-sim").get_attribute("aria-selected") == "true" and len(p.names()) == 4,
           "the SIM tab by keyboard")

    # A phone's screen: the list first, select-all and the actions in a
    # compact bar, its menu opened and closed by keyboard alone.
    p.d.set_window_size(390, 844)
    p.wait(lambda: p.el("#select-all-bar").is_displayed() and not p.el("#delete-selected").is_displayed(),
           "the phone's compact bar")
    top = p.d.execute_script("return document.querySelector('#rows tr').getBoundingClientRect().top")
    assert top < 400, f"the first entry starts {top}px down the phone's screen"
    p.shot("phone")
    p.el("#select-all-bar").send_keys(Keys.SPACE)
    p.wait(lambda: len(p.d.find_elements(By.CSS_SELECTOR, "#rows tr.selected")) == 4, "all selected")
    p.el("#actions-toggle").send_keys(Keys.ENTER)
    p.wait(lambda: p.el("#delete-selected").is_displayed(), "the actions menu")
    assert p.el("#delete-selected").text == "Delete selected (4)", p.el("#delete-selected").text
    p.shot("phone-actions")
    p.el("#export-all").send_keys(Keys.ESCAPE)
    p.wait(lambda: not p.el("#delete-selected").is_displayed(), "the menu closed by Escape")
    assert p.d.switch_to.active_element.get_attribute("id") == "actions-toggle"
    p.el("#select-all-bar").send_keys(Keys.SPACE)
    p.wait(lambda: not p.d.find_elements(By.CSS_SELECTOR, "#rows tr.selected"), "none selected")
    p.d.set_window_size(1280, 900)


def run_duplicates(page, url):
    """Duplicates across both phonebooks: the groups shown, the user keeps
    the card's entry of one and leaves another, and a merge of an entry
    changed meanwhile is refused with the groups shown anew."""
    p = page
    for entry in ({"name": "Zoë (home)", "number": "030 123456", "email": "zoe@example.de"},
                  {"name": "Emergency", "number": "112"}, {"name": "Дмитрий", "number": "8495765"}):
        http(url, "POST", "/api/device/entries", entry)

    def groups():
        return p.d.execute_script("""return [...document.querySelectorAll('#dup-groups fieldset')].map((f) => ({
            kind: f.dataset.kind, take: f.querySelector('.dup-take').checked,
            entries: [...f.querySelectorAll('.dup-entry')].map((l) => l.textContent)}))""")

    p.el("#dup-open").click()
    p.wait(lambda: len(groups()) == 3, "the groups of duplicates")
    g = groups()
    assert [(x["kind"], x["take"]) for x in g] == [("same", True), ("same", True), ("maybe", False)], g
    # The entry with an e-mail is offered to keep first.
    assert g[0]["entries"] == ["Device entry 1: Zoë (home), 030123456, zoe@example.de",
                               "SIM entry 1: Zoë Müller, +4930123456"], g[0]
    assert p.el("#dup-merge").text == "Merge: delete 2 entries", p.el("#dup-merge").text
    p.shot("duplicates")
    # Keep the card's Zoë, leave the 112s alone.
    sets = p.d.find_elements(By.CSS_SELECTOR, "#dup-groups fieldset")
    sets[0].find_elements(By.CSS_SELECTOR, "input[type=radio]")[1].click()
    sets[1].find_element(By.CSS_SELECTOR, ".dup-take").click()
    assert p.el("#dup-merge").text == "Merge: delete 1 entry", p.el("#dup-merge").text
    p.el("#dup-merge").click()
    p.wait(lambda: not p.el("#dup-dialog").is_displayed(), "the dialog closed")
    assert p.message() == "Merged: deleted 1 entry.", p.message()
    device = http_get(url, "/api/device/entries")
    assert [e["name"] for e in device["entries"]] == ["Emergency", "Дмитрий"], device
    assert "Zoë Müller" in p.names()

    # Another client renames the device's 112 while the groups are shown.
    p.el("#dup-open").click()
    p.wait(lambda: len(groups()) == 2, "the groups left")
    sos = device["entries"][0]["index"]
    http(url, "PUT", f"/api/device/entries/{sos}", {"name": "SOS"})
    p.el("#dup-merge").click()
    p.wait(lambda: "changed meanwhile" in p.el("#dup-error").text, "the merge refused")
    p.wait(lambda: f"Device entry {sos}: SOS, 112" in groups()[0]["entries"], "the groups shown anew")
    p.el("#dup-close").click()
    http(url, "POST", "/api/device/delete-all", {"confirm": "delete all"})


def run_outages(page, procs, start_host, start_simd):
    """The phonebook service, then the modem, stop and start again: the page
    shows each in its own panel (never as an empty phonebook) with the
    actions off, and the list again by itself, without a reload."""
    p = page
    p.d.execute_script("window.notReloaded = true")
    trouble = ("The change was not made", "pb_host", "code", "-1")

    # A change fails as the service goes: the form keeps what was typed.
    p.el("#add").click()
    p.wait(lambda: p.el("#entry-dialog").is_displayed(), "the add form")
    p.fill("#f-name", "Karin")
    p.fill("#f-number", "0301234")
    procs.stop_one(procs.host)
    p.el("#entry-save").click()
    p.wait(lambda: p.el("#entry-error").text.startswith(trouble[0]), "the failed change")
    text = p.el("#entry-error").text
    assert "not available" in text and not any(w in text for w in trouble[1:]), text
    p.shot("change-failed")
    p.el("#entry-cancel").click()
    p.wait(lambda: p.state() == "unreachable", "the service's panel")
    assert not p.rows() and not p.el("#empty").is_displayed()
    assert not p.el("#add").is_enabled() and not p.el("#delete-all").is_enabled()
    p.shot("service-unreachable")
    # The device phonebook is read from its file: listed, with the changes off.
    p.el("#tab-device").click()
    p.wait(lambda: p.el("#service").is_displayed(), "the service notice on the device tab")
    assert not p.el("#add").is_enabled() and p.el("#export-all").is_enabled()
    p.el("#tab-sim").click()
    p.wait(lambda: p.state() == "unreachable", "the service's panel again")

    procs.host = start_host()
    p.wait(lambda: len(p.names()) == 4 and p.el("#add").is_enabled(), "the SIM list back")

    # The service goes while nobody touches the page: its panel shows by itself.
    procs.stop_one(procs.host)
    p.wait(lambda: p.state() == "unreachable", "the service's panel without an action")
    procs.host = start_host()
    p.wait(lambda: len(p.names()) == 4 and p.el("#add").is_enabled(), "the SIM list back again")

    # The modem goes: the next ask of the card finds it gone, and after the
    # longest read of a card the page stops saying "reading".
    procs.stop_one(procs.simd)
    p.el("#add").click()
    p.fill("#f-name", "Karin")
    p.fill("#f-number", "0301234")
    p.el("#entry-save").click()
    p.wait(lambda: p.el("#entry-error").text.startswith(trouble[0]), "the change refused")
    p.el("#entry-cancel").click()
    p.wait(lambda: p.state() == "no_card", "the card's panel")
    assert "SIM card" in p.el("#state").text and not p.el("#add").is_enabled()
    p.shot("card-unavailable")
    procs.simd = start_simd()
    p.wait(lambda: len(p.names()) == 4 and p.el("#add").is_enabled(), "the SIM list back after the modem")
    assert p.d.execute_script("return window.notReloaded === true"), "the page was reloaded"


def run_languages(driver_for, url, work):
    """A browser that asks for German gets the page in German, states and
    server results in its words too; the switch on the page turns it to
    English and keeps it so over a reload."""
    english = http_get(url, "/i18n/en.json")
    assert set(http_get(url, "/i18n/de.json")) == set(english), "the German catalog lacks or adds words"
    d = driver_for("de-DE,de,en")
    try:
        p = Page(d, url, work)
        p.n = 50
        p.d.get(url)
        p.wait(lambda: p.el("#add").text == "Eintrag hinzufügen" and len(p.names()) == 4, "the German page")
        assert p.d.title == "Telefonbuch" and p.el("#tab-sim").text.startswith("SIM-Karte"), p.d.title
        p.el("#tab-device").click()
        p.wait(lambda: p.el("#empty").is_displayed(), "the empty device phonebook")
        assert p.el("#empty").text.startswith("Das Geräte-Telefonbuch ist leer."), p.el("#empty").text
        # What became of each contact: from the outcome words, in German.
        src = os.path.join(work, "contacts.vcf")
        p.import_file(src)
        p.wait(lambda: len(p.names()) == 3, "the imported entries")
        assert p.el("#report li.bad").text == "Zeile 17: Flowers 1-800-FLOWERS: nicht übernommen: Die Nummer lässt sich nicht speichern", \
            p.el("#report").text
        assert p.message() == "3 von 4 Kontakten aus contacts.vcf (vcard) ins Geräte-Telefonbuch übernommen.", \
            p.message()
        http(url, "POST", "/api/device/delete-all", {"confirm": "delete all"})
        p.el("#tab-sim").click()
        p.wait(lambda: len(p.names()) == 4, "the SIM list")
        p.row_button("Emergency", "Löschen").click()
        p.wait(lambda: p.el("#confirm-dialog").is_displayed(), "the German question")
        assert p.el("#confirm-text").text == "Eintrag 4 (Emergency) aus dem SIM-Telefonbuch löschen?", \
            p.el("#confirm-text").text
        p.el("#confirm-cancel").click()
        # A number refused: pbweb's reason and its character and place, in German.
        p.el("#add").click()
        p.fill("#f-number", "030 12a")
        p.wait(lambda: p.el("#h-number").text.startswith("„a“ an Stelle 7: Buchstaben"), "the German number hint")
        p.el("#entry-cancel").click()
        p.shot("german")
        Select(p.el("#lang")).select_by_value("en")
        p.wait(lambda: p.el("#add").text == "Add entry" and p.row_button("Emergency", "Delete"), "English by the switch")
        p.d.refresh()
        p.wait(lambda: p.el("#add").text == "Add entry" and len(p.names()) == 4, "English kept over a reload")
    finally:
        d.quit()


def run_login(page, url):
    """The same page behind a password: the login form, a wrong and a right
    password, the session cookie at work, and the logout."""
    p = page
    p.d.get(url)
    p.wait(lambda: p.el("#login").is_displayed(), "the login form")
    p.el("#password").send_keys("wrong", Keys.ENTER)
    p.wait(lambda: p.el("#login-error").text == "Wrong password", "the refusal")
    p.fill("#password", "open sesame")
    p.el("#password").send_keys(Keys.ENTER)
    p.wait(lambda: len(p.names()) == 4 and p.el("#logout").is_displayed(), "the list after the login")
    assert p.d.execute_script("return document.cookie") == "", "the session cookie is HttpOnly"
    p.d.refresh()
    p.wait(lambda: len(p.names()) == 4 and p.el("#logout").is_displayed(), "the session kept over a reload")
    p.el("#logout").click()
    p.wait(lambda: p.el("#login").is_displayed(), "the login form after logging out")


def main():
    ap = argparse.ArgumentParser()
    for opt in ("--pbweb", "--pb-host", "--pbm-simd", "--work"):
        ap.add_argument(opt, required=True)
    args = ap.parse_args()
    if not rig.have_browser():
        print("skipped: chromium or chromedriver is not installed")
        return 77

    work = args.work
    shutil.rmtree(work, ignore_errors=True)
    downloads = os.path.join(work, "downloads")
    os.makedirs(downloads)
    rig.fresh_folders()
    card = os.path.join(work, "card.txt")
    with open(card, "w", encoding="utf-8") as f:
        f.write(CARD)

    procs = rig.Processes(work)
    driver = None
    failed = None
    try:
        def start_simd():
            return procs.start([args.pbm_simd, "--card", card, "--reply-delay", "700"], "pbm_simd.log")

        def start_host():
            return procs.start([args.pb_host], "pb_host.log")

        procs.simd = start_simd()
        procs.host = start_host()
        rig.wait_for_host()
        url = procs.start_pbweb(args.pbweb, "pbweb.log")

        def driver_for(languages):
            return rig.chrome(languages, downloads)

        driver = driver_for("en-US,en")
        driver.execute_cdp_cmd("Page.setDownloadBehavior", {"behavior": "allow", "downloadPath": downloads})
        page = Page(driver, url, work)
        run(page, url, work, card, downloads)
        run_duplicates(page, url)
        run_outages(page, procs, start_host, start_simd)
        run_languages(driver_for, url, work)

        pw = os.path.join(work, "password")
        subprocess.run([args.pbweb, "--set-password", pw], input=b"open sesame\n", check=True)
        guarded = procs.start_pbweb(args.pbweb, "pbweb-login.log", "--password-file", pw)
        run_login(Page(driver, url, work), guarded)
        # Answers such as 503 and 409 are logged as failed loads; script errors are not.
        logs = [e for e in driver.get_log("browser") if e["level"] == "SEVERE" and e["source"] != "network"]
        assert not logs, f"browser console errors: {logs}"
    except Exception as e:  # report, keep a screenshot, stop everything
        failed = e
        if driver:
            driver.save_screenshot(os.path.join(work, "failure.png"))
    finally:
        if driver:
            driver.quit()
        bad = procs.stop()
    if failed:
        print(f"FAILED: {type(failed).__name__}: {failed}\nscreenshots and logs in {work}")
        return 1
    if bad:
        print("FAILED: " + "; ".join(bad))
        return 1
    print(f"passed; screenshots in {work}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
