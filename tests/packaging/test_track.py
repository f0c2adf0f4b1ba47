"""tarn track: reading fixes, the numbers it tells and the picture it draws. tarn geo inside and iou."""

import math
import os
import re
import shutil
import subprocess
import unittest
import xml.etree.ElementTree as xml
from fractions import Fraction

import support
from test_command import Command

SAMPLE = support.SOURCE / "examples/sample-track.csv"
HEADER = "time,lat,lon,speed,course\n"
SVG = "{http://www.w3.org/2000/svg}"
KNOT = 1852 / 3600


class Track(Command):
    def track(self, content, **options):
        file = self.write("fixes.csv", content)
        return self.run_tarn("track", file, "--out", self.folder / "track.svg", **options)

    def picture(self):
        return xml.parse(self.folder / "track.svg").getroot()

    def assert_drawn(self, done):
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return self.picture()

    def assert_refused(self, done, *told):
        self.assertEqual(done.returncode, 1)
        self.assertEqual(sorted(p.name for p in self.folder.iterdir()), ["app", "fixes.csv"])
        self.assertEqual(done.stderr, "".join(f"tarn: {self.folder}/fixes.csv{text}\n" for text in told))

    def words(self, picture):
        return ["".join(text.itertext()).strip() for text in picture.iter(SVG + "text")]

    def misses(self, done):
        """How far filter and dead reckoning missed the next fixes."""
        return [float(number) for number in re.search(r"filter to (\S+) m, by dead reckoning to (\S+) m", done.stdout).groups()]

    def test_the_sample_is_what_its_script_makes(self):
        self.assertEqual(support.output(support.SCRIPTS / "make-sample-track"), SAMPLE.read_text())
        support.output(support.SCRIPTS / "make-sample-track", self.folder / "again.csv")
        self.assertEqual((self.folder / "again.csv").read_text(), SAMPLE.read_text())

    def test_the_picture_has_title_axes_legend_scale_and_both_ends(self):
        done = self.run_tarn("track", SAMPLE, "--out", self.folder / "track.svg")
        words = self.words(self.assert_drawn(done))
        for expected in ("Track of sample-track.csv", "longitude (°)", "latitude (°)", "start", "end", "200 m"):
            self.assertIn(expected, words)
        for expected in ("measured", "filtered", "predicted"):
            self.assertEqual(len([word for word in words if word.startswith(expected)]), 1, words)
        self.assertEqual(done.stdout.splitlines()[1], f"tarn: drawn in {self.folder}/track.svg")

    def test_the_filter_foretells_the_sample_better_than_dead_reckoning(self):
        filtered, predicted = self.misses(self.run_tarn("track", SAMPLE, "--out", self.folder / "track.svg"))
        self.assertLess(filtered, predicted)
        self.assertLess(predicted, 20)

    def test_the_page_shows_the_picture_of_the_sample(self):
        shown = xml.parse(support.SOURCE / "docs/sample-track.svg").getroot()
        drawn = self.assert_drawn(self.run_tarn("track", SAMPLE, "--out", self.folder / "track.svg"))
        self.assertEqual(self.words(shown), self.words(drawn))
        self.assertEqual(len(list(shown.iter(SVG + "use"))), len(list(drawn.iter(SVG + "use"))))

    def test_every_fix_is_drawn(self):
        self.assert_drawn(self.run_tarn("track", SAMPLE, "--out", self.folder / "track.svg"))
        text = (self.folder / "track.svg").read_text()
        fixes = len(SAMPLE.read_text().splitlines()) - 1
        # Solid circles: once under the lines, once over them, and one in the legend.
        self.assertEqual(len(re.findall(r"<use xlink:href='#gpPt6'", text)), 2 * fixes + 1)
        self.assertEqual(len(re.findall(r"<use xlink:href='#gpPt1'", text)), fixes + 1)

    def steady(self, lat, lon, course, knots=10, step=10, count=30):
        """A target on a straight way without errors."""
        rows = []
        for i in range(count):
            way = knots * KNOT * step * i / 111195
            rows.append((step * i, lat + way * math.cos(math.radians(course)),
                         lon + way * math.sin(math.radians(course)) / math.cos(math.radians(lat)), knots, course))
        return HEADER + "".join(",".join(f"{number:.9f}" for number in row) + "\n" for row in rows)

    def test_a_steady_target_is_foretold_in_every_direction(self):
        # Half a per cent is between the Earth models; a way of 51 m each.
        for lat in (-60, -10, 0.5, 38, 70):
            for course in (0, 45, 90, 180, 225, 300):
                with self.subTest(lat=lat, course=course):
                    filtered, predicted = self.misses(self.track(self.steady(lat, 20, course)))
                    self.assertLess(predicted, 0.5)
                    self.assertLess(filtered, 0.5)

    def test_both_axes_have_the_same_scale(self):
        # Ten kilometres north and ten east: as long in the picture.
        north = 10 / 111.195
        east = north / math.cos(math.radians(60 + north / 2))
        corners = [(60, 20), (60 + north, 20), (60 + north, 20 + east), (60, 20 + east)]
        rows = "".join(f"{3600 * i},{lat:.9f},{lon:.9f},0,0\n" for i, (lat, lon) in enumerate(corners))
        self.assert_drawn(self.track(rows))
        marks = re.findall(r"<use xlink:href='#gpPt6' transform='translate\(([\d.]+),([\d.]+)\)",
                           (self.folder / "track.svg").read_text())
        (x0, y0), (x1, y1), (x2, y2) = [(float(x), float(y)) for x, y in marks[:3]]
        self.assertAlmostEqual(x0, x1, delta=0.2)
        self.assertAlmostEqual(y0 - y1, x2 - x1, delta=(y0 - y1) / 100)
        self.assertGreater(y0 - y1, 300)

    def test_a_track_across_the_date_line_has_no_jump(self):
        rows = "".join(f"{10 * i},0,{(180 + 0.0005 * i + 180) % 360 - 180:.6f},10.8,90\n" for i in range(-10, 10))
        done = self.track(rows)
        self.assert_drawn(done)
        self.assertLess(max(self.misses(done)), 2)

    def test_the_header_may_be_missing_and_lines_may_be_blank_or_remarks(self):
        rows = "0,1,2,3,4\n10,1.0001,2,+3,4e0\n"
        told = {self.track(text).stdout for text in (
            rows, HEADER + rows, "# made by hand\n\n" + HEADER + "\n" + rows.replace("\n", "\r\n"),
            rows.replace(",", " ,\t"), rows.rstrip("\n"))}
        self.assertEqual(len(told), 1)
        self.assertIn("tarn: 2 fixes;", told.pop())

    def test_wrong_rows_are_told_with_their_line_and_nothing_is_drawn(self):
        rows = HEADER + "0,1,2,3,4\n\n10,1,2,3\n20,1,2,3,4,5\n30,x,2,3,4\n40,91,2,3,4\n50,1,361,3,4\n60,1,2,-3,4\n" \
            "0,1,2,3,4\n70,1,2,3,inf\n80,1,2,3,4 5\n90,,2,3,4\n" \
            "95,1,2,3,361\n96,1,2,100001,4\n" + HEADER + "100,1,2,3,4\n"
        columns = "not the five columns time,lat,lon,speed,course"
        self.assert_refused(
            self.track(rows), f":4: {columns}", f":5: {columns}", ":6: lat is not a number",
            ":7: lat is not between -90 and 90", ":8: lon is not between -360 and 360", ":9: speed is not between 0 and 100000",
            ":10: time is not later than in the row before", ":11: course is not a number",
            ":12: course is not a number", ":13: lat is not a number", ":14: course is not between -360 and 360",
            ":15: speed is not between 0 and 100000", ":16: time is not a number")

    def test_a_header_stands_in_the_first_row_only_and_has_no_numbers(self):
        self.assert_refused(self.track("time,lat,2,speed,course\n0,1,2,3,4\n1,1,2,3,4\n"), ":1: time is not a number")

    def test_too_few_fixes_are_no_track(self):
        for rows in ("", HEADER, HEADER + "0,1,2,3,4\n"):
            with self.subTest(rows=rows):
                self.assert_refused(self.track(rows), ": a track needs two fixes at least")

    def test_a_file_that_cannot_be_read_is_told(self):
        for file, reason in ((self.folder / "none", "No such file or directory"), (self.folder, "Is a directory")):
            done = self.run_tarn("track", file, "--out", self.folder / "track.svg")
            self.assertEqual((done.returncode, done.stderr), (1, f"tarn: {file}: {reason}\n"))

    def test_a_picture_that_cannot_be_written_is_told(self):
        done = self.run_tarn("track", SAMPLE, "--out", self.folder / "none/track.svg")
        self.assertEqual(done.returncode, 1)
        self.assertIn("No such file or directory", done.stderr)

    def test_a_missing_gnuplot_is_told_and_the_old_picture_stays(self):
        old = self.write("track.svg", "old")
        done = self.track("0,1,2,3,4\n1,1,2,3,4\n", env={**os.environ, "PATH": str(self.folder)})
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, "tarn: gnuplot, which draws the picture, is not installed"
                         " (Debian package gnuplot-nox)\n")
        self.assertEqual(old.read_text(), "old")
        self.assertFalse((self.folder / "track.svg.part").exists())

    def test_a_gnuplot_that_fails_is_told_and_the_old_picture_stays(self):
        old = self.write("track.svg", "old")
        self.write("bin/gnuplot", "#!/bin/sh\necho '<svg'\nexit 3\n").chmod(0o755)
        done = self.track("0,1,2,3,4\n1,1,2,3,4\n", env={**os.environ, "PATH": f"{self.folder}/bin:{os.environ['PATH']}"})
        self.assertEqual((done.returncode, done.stderr), (1, "tarn: gnuplot could not draw the picture\n"))
        self.assertEqual(old.read_text(), "old")
        self.assertFalse((self.folder / "track.svg.part").exists())

    def test_somebodys_own_gnuplot_settings_have_no_part_in_it(self):
        self.write(".gnuplot", "set terminal dumb\nset title 'mine'\n")
        done = self.track("0,1,2,3,4\n10,1.0001,2,3,4\n", env={**os.environ, "HOME": str(self.folder)})
        self.assertIn("Track of fixes.csv", self.words(self.assert_drawn(done)))

    def test_file_names_cannot_break_the_picture(self):
        for name in ("it's.csv", "<&>.csv", "a_b^c{d}@e.csv", "line\nend.csv", "`id`.csv", '"$HOME"\\n.csv', "-.csv", "naïve.csv"):
            with self.subTest(name=name):
                file = self.write(name, "0,1,2,3,4\n10,1.0001,2,3,4\n")
                done = self.run_tarn("track", "./" + file.name, "--out", "track.svg", cwd=self.folder)
                shown = "".join(c if c != "\n" else "?" for c in name).replace("ï", "??")
                self.assertIn(f"Track of {shown}", self.words(self.assert_drawn(done)))

    def test_targets_at_rest_or_with_odd_times_are_drawn(self):
        for rows in ("0,1,2,0,0\n1,1,2,0,0\n", "0,1,2,3,4\n1e-9,1,2,3,4\n", "-1e12,1,2,0,4\n1e12,1,3,0,4\n",
                     "0,89.9,0,1,4\n10,89.9,179,1,4\n"):
            with self.subTest(rows=rows):
                self.assert_drawn(self.track(rows))
                (self.folder / "track.svg").unlink()

    def test_forecasts_beyond_the_map_are_told(self):
        for rows in ("0,1,2,1e5,0\n1e6,1,2,1e5,0\n", "0,1,2,1e5,90\n1e300,1,2,1e5,90\n", "0,89.99,2,90,0\n60,89.99,2,90,0\n"):
            with self.subTest(rows=rows):
                self.assert_refused(self.track(rows), ": a forecast leaves the map")

    def test_wrong_usage_ends_with_2(self):
        for arguments in ([], [SAMPLE], ["--out", "x.svg"]):
            self.assertEqual(self.run_tarn("track", *arguments, cwd=self.folder).returncode, 2)


class GeoPlane(Command):
    SQUARE = ("--polygon", "0,0;10,0;10,10;0,10")

    def test_positions_are_inside_or_outside(self):
        done = self.run_tarn("geo", "inside", *self.SQUARE, input="5 5\n5 0\n5 10\n0,5\n10,5\n-1 -1\nnan 5\n")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(done.stdout.split(), ["inside", "inside", "outside", "inside", "outside", "outside", "outside"])
        self.assertEqual(self.run_tarn("geo", "inside", *self.SQUARE, "5", "5").stdout, "inside\n")
        self.assertEqual(self.run_tarn("geo", "inside", "--polygon=-1,-1;1,-1;0,1", "-0.5", "-0.5").stdout, "inside\n")

    def test_overlaps_are_exact_ratios(self):
        done = self.run_tarn("geo", "iou", "--exact", input="0 0 10 10 5 5 15 15\n0 0 10 10 10 0 20 10\n-3 -3 4 4 -1 -1 2 9\n")
        self.assertEqual([float(line) for line in done.stdout.split()],
                         [float(Fraction(25, 175)), 0, float(Fraction(3 * 5, 49 + 30 - 15))])
        self.assertEqual(self.run_tarn("geo", "iou", "0", "0", "10", "10", "5", "5", "15", "15").stdout, "0.142857143\n")

    def test_wrong_lines_are_named_and_the_others_answered(self):
        done = self.run_tarn("geo", "iou", input="0 0 1 1 0 0 1\n0 0 1.5 1 0 0 1 1\n0 0 3e9 1 0 0 1 1\n1 0 0 1 0 0 1 1\n"
                                                 "nan 0 1 1 0 0 1 1\n0 0 1 1 0 0 1 1\n")
        self.assertEqual((done.returncode, done.stdout), (1, "1.000000000\n"))
        self.assertEqual([line.split(":")[1] for line in done.stderr.splitlines()], [f" line {i}" for i in range(1, 6)])

    def test_wrong_usage_ends_with_2(self):
        for arguments in (["inside", "1", "2"], ["inside", *self.SQUARE, "1"], ["inside", "--polygon", "0,0;1,1", "1", "1"],
                          ["inside", "--polygon", "0,0;1;1,1;2,2", "1", "1"], ["inside", "--polygon", "", "1", "1"],
                          ["inside", "--polygon", "0,0;1,1;2,x", "1", "1"], ["iou", "1", "2", "3", "4"]):
            with self.subTest(arguments=arguments):
                done = self.run_tarn("geo", *arguments, input="")
                self.assertEqual(done.returncode, 2)
                self.assertNotEqual(done.stderr, "")


if __name__ == "__main__":
    unittest.main()
