#!/usr/bin/env python3
"""Drives the catalogue's page in headless Chromium (scripts/test-web.sh).

Usage: web_browser_check.py URL SCREENSHOT PROFILE_DIR

Types a name that stands on two machines in three versions, reads the
results table, opens the versions of one file and checks what the page
shows; pages through a result larger than a page; finds, shows and opens
damaged names (lone surrogates) exactly. Exit 1 with the reason
when the page shows something else; the screenshot is taken either way.
"""
import sys

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support import expected_conditions as ec
from selenium.webdriver.support.ui import WebDriverWait


def rows(driver, table_id):
    return [[td.text for td in tr.find_elements(By.TAG_NAME, "td")]
            for tr in driver.find_elements(By.CSS_SELECTOR, f"#{table_id} tbody tr")]


def check(driver, url):
    wait = WebDriverWait(driver, 20)
    driver.get(url)
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "2 machines, 3 restore points"))
    machines = [o.text for o in driver.find_elements(By.CSS_SELECTOR, "#machine option")]
    assert machines == ["any", "pc-01", "srv-02"], machines

    driver.find_element(By.ID, "q").send_keys("budget-2026")
    driver.find_element(By.ID, "search").click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "versions found"))
    found = rows(driver, "results")
    # machine, restore points, path, size, last written, owner
    expected = [
        ["pc-01", "1", "C:\\Users\\alice\\Documents\\budget-2026.xlsx", "48.8 KB", "2026-01-05T00:00:00Z", "CORP\\alice"],
        ["pc-01", "2", "C:\\Users\\alice\\Documents\\budget-2026.xlsx", "49.8 KB", "2026-01-06T00:00:00Z", "CORP\\alice"],
        ["srv-02", "3", "C:\\Shares\\Finance\\budget-2026.xlsx", "2.38 MB", "2026-01-07T00:00:00Z", "CORP\\bob"],
    ]
    assert found == expected, f"results table:\n{found}"

    driver.find_element(By.LINK_TEXT, "C:\\Users\\alice\\Documents\\budget-2026.xlsx").click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "2 versions of"))
    title = driver.find_element(By.ID, "detail-title").text
    assert title == "Versions of C:\\Users\\alice\\Documents\\budget-2026.xlsx on pc-01", title
    versions = rows(driver, "detail")
    assert [v[:3] for v in versions] == [["48.8 KB", "2026-01-05T00:00:00Z", "CORP\\alice"],
                                         ["49.8 KB", "2026-01-06T00:00:00Z", "CORP\\alice"]], versions
    assert versions[0][3].startswith("1: pc-01, taken 2026-01-05T18:00:00Z"), versions
    assert versions[1][3].startswith("2: pc-01, taken 2026-01-06T18:00:00Z"), versions
    driver.save_screenshot(sys.argv[2])

    # A result larger than a page: the first 100, then the rest on request.
    query = driver.find_element(By.ID, "q")
    query.clear()
    query.send_keys("log_")
    driver.find_element(By.ID, "search").click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "100+ versions found"))
    driver.find_element(By.ID, "more").click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "200+ versions found"))
    driver.find_element(By.ID, "more").click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "250 versions found"))
    assert not driver.find_element(By.ID, "more").is_displayed()

    # Damaged names that differ only in their lone surrogates: two rows, each
    # surrogate shown by its code; opening one asks for its exact path.
    query.clear()
    query.send_keys("damaged")
    driver.find_element(By.ID, "search").click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "2 versions found"))
    paths = [r[2] for r in rows(driver, "results")]
    assert paths == ["C:\\Odd\\damaged \\uD800 name.txt", "C:\\Odd\\damaged \\uDC00 name.txt"], paths
    marks = [m.text for m in driver.find_elements(By.CSS_SELECTOR, "#results td.path .lone")]
    assert marks == ["\\uD800", "\\uDC00"], marks
    driver.find_elements(By.CSS_SELECTOR, "#results td.path a")[1].click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "1 version of"))
    sizes = [v[0] for v in rows(driver, "detail")]
    assert sizes == ["5 bytes"], sizes
    driver.save_screenshot(sys.argv[2].replace(".png", "-damaged.png"))
    # A lone surrogate in the search box is searched for exactly.
    driver.execute_script("document.getElementById('q').value = 'damaged \\uD800 name'")
    driver.find_element(By.ID, "search").click()
    wait.until(ec.text_to_be_present_in_element((By.ID, "status"), "1 version found"))
    paths = [r[2] for r in rows(driver, "results")]
    assert paths == ["C:\\Odd\\damaged \\uD800 name.txt"], paths


def main():
    url, screenshot, profile = sys.argv[1:4]
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-dev-shm-usage", "--window-size=1280,900", f"--user-data-dir={profile}"]:
        options.add_argument(flag)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        check(driver, url)
    except Exception as e:  # what the page showed goes with the reason
        driver.save_screenshot(screenshot)
        print(f"test-web: FAILED: {type(e).__name__}: {e}\nstatus line: "
              f"{driver.find_element(By.ID, 'status').text!r}", file=sys.stderr)
        return 1
    finally:
        driver.quit()
    return 0


if __name__ == "__main__":
    sys.exit(main())
