"""tarn geo: numbers from arguments and from standard input, compared with GeographicLib's commands."""

import math
import random
import re
import subprocess
import unittest

import support
from test_command import Command


class Geo(Command):
    def numbers(self, *arguments, **options):
        done = self.run_tarn("geo", *arguments, **options)
        self.assertEqual(done.returncode, 0, done.stderr)
        return [[float(word) for word in line.split()] for line in done.stdout.splitlines()]

    def ask(self, sets, *arguments):
        return self.numbers(*arguments, input="".join(" ".join(map(repr, row)) + "\n" for row in sets))

    def oracle(self, sets, *command):
        text = support.output(*command, input="".join(" ".join(map(repr, row)) + "\n" for row in sets))
        return [[float(word) for word in line.split()] for line in text.splitlines()]

    def positions(self, count, *more):
        chance = random.Random(5)
        return [[chance.uniform(-170, 170), chance.uniform(-70, 70), *(chance.uniform(*range_) for range_ in more)]
                for _ in range(count)]

    def test_distances_are_those_of_the_sphere(self):
        pairs = self.positions(200, (-170, 170), (0.1, 70))
        expected = self.oracle(pairs, "GeodSolve", "-i", "-w", "-p", "6", "-e", "6378137", "0")
        for formula in ([], ["--by", "haversine"], ["--by", "cosines"]):
            for row, exact in zip(self.ask(pairs, "distance", *formula), expected, strict=True):
                self.assertAlmostEqual(row[0], exact[2], delta=1e-3)
        northern = [[lon1, abs(lat1), lon2, lat2] for lon1, lat1, lon2, lat2 in pairs]
        expected = self.oracle(northern, "GeodSolve", "-i", "-w", "-p", "6", "-e", "6378137", "0")
        for row, exact in zip(self.ask(northern, "distance", "--by", "chord"), expected, strict=True):
            self.assertAlmostEqual(row[0], exact[2], delta=1e-3)

    def test_moves_are_vincentys_unless_told_otherwise(self):
        starts = self.positions(200, (0, 360), (1, 50000))
        exact = self.oracle(starts, "GeodSolve", "-w", "-u", "-p", "9")
        for formula, metres in (("vincenty", 0.001), ("gauss", 60), ("plane", 1000), ("sphere", 600)):
            for row, right in zip(self.ask(starts, "move", "--by", formula), exact, strict=True):
                away = math.hypot((row[0] - right[0]) * math.cos(math.radians(right[1])), row[1] - right[1]) * 111320
                self.assertLess(away, metres, formula)
        self.assertEqual(self.ask(starts, "move"), self.ask(starts, "move", "--by", "vincenty"))
        self.assertNotEqual(self.ask(starts, "move"), self.ask(starts, "move", "--by", "gauss"))

    def test_bearings_are_near_those_of_the_geodesic(self):
        self.assertAlmostEqual(self.numbers("bearing", "116", "39", "116.01", "39.01")[0][0], 37.87, delta=0.2)
        self.assertEqual(self.numbers("bearing", "0", "0", "1", "0"), [[180]])

    def test_grid_positions_are_northing_and_easting(self):
        lon, lat = 118.25, 39.5
        easting, northing = self.oracle([[lat, lon]], "TransverseMercatorProj", "-l", "117", "-k", "1", "-p", "6")[0][:2]
        for zone in ([], ["--zone", "6"], ["--zone", "3"]):
            x, y = self.numbers("xy", *zone, str(lon), str(lat))[0]
            self.assertAlmostEqual(x, northing, delta=1e-3)
            self.assertAlmostEqual(y, easting + 500000, delta=1e-3)
        back = self.numbers("lonlat", "--meridian", "117", str(x), str(y))[0]
        self.assertAlmostEqual(back[0], lon, delta=1e-6)
        self.assertAlmostEqual(back[1], lat, delta=1e-6)
        self.assertNotEqual(self.numbers("xy", "119", "39"), self.numbers("xy", "--zone", "3", "119", "39"))

    def test_the_shift_is_that_of_the_national_grid(self):
        self.assertEqual(self.numbers("shift", "--exact", "116.377817", "39.911954"),
                         [[116.38404722455657, 39.91334545536069]])
        self.assertEqual(self.numbers("shift", "-116.3", "-3"), [[-116.3, -3]])

    def test_exact_results_have_every_digit_and_others_what_can_be_measured(self):
        short = self.run_tarn("geo", "distance", "116", "39", "117", "39").stdout
        exact = self.run_tarn("geo", "distance", "--exact", "116", "39", "117", "39").stdout
        self.assertEqual(short, f"{float(exact):.4f}\n")
        self.assertGreater(len(exact), len(short))
        self.assertRegex(self.run_tarn("geo", "move", "116", "39", "0", "1").stdout, r"^\d+\.\d{9} \d+\.\d{9}\n$")

    def test_lines_may_hold_commas_blank_lines_and_remarks(self):
        text = "\n# from, to\n 116 39 117 39\n116,39,\t117,39\r\n+116 39.0e0 117, 39"
        rows = self.numbers("distance", input=text)
        self.assertEqual(rows, [rows[0]] * 3)
        self.assertEqual(self.numbers("distance", input=""), [])

    def test_numbers_may_stand_one_per_line(self):
        row = self.numbers("distance", "116", "39", "117", "39")[0]
        self.assertEqual(self.numbers("distance", input="116\n39\n\n117\n# north\n39\n"), [row])
        self.assertEqual(self.numbers("distance", input="116\n39\n117\n39\n116 39 117 39\n116\n39\n117\n39"), [row] * 3)
        self.assertEqual(self.run_tarn("geo", "inside", "--polygon", "0,0;9,0;0,9", input="1\n1\n8\n8\n").stdout,
                         "inside\noutside\n")
        self.assertEqual(self.numbers("iou", input="".join(f"{n}\n" for n in (0, 0, 10, 10, 0, 0, 10, 10))), [[1]])

    def test_sets_that_lack_numbers_are_named_by_their_first_line(self):
        done = self.run_tarn("geo", "distance", input="# no set\n1\n2\n3\n0 0 0 0\n1\nx\n0\n0\n0\n0\n5\n")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout, "0.0000\n0.0000\n")
        self.assertEqual([line.split(":")[1] for line in done.stderr.splitlines()],
                         [" line 2", " line 6", " line 7", " line 12"])

    def test_wrong_lines_are_named_and_the_others_answered(self):
        done = self.run_tarn("geo", "distance", input="1 2 3\n0 0 0 0\n1 2 3 x\n1 2 3 4 5\n1 2 3 4y\n1 2 3 +-4\n0 0 0 0\n")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout, "0.0000\n0.0000\n")
        self.assertEqual([line.split(":")[1] for line in done.stderr.splitlines()],
                         [" line 1", " line 3", " line 4", " line 5", " line 6"])
        self.assertIn("wants LON1 LAT1 LON2 LAT2", done.stderr)

    def test_numbers_beyond_any_formula_are_answered(self):
        rows = self.run_tarn("geo", "move", input="nan 0 0 1\n0 0 0 1e300\n0 inf 0 1\n").stdout.splitlines()
        self.assertEqual(len(rows), 3)
        self.assertIn("nan", rows[0])

    def test_wrong_usage_ends_with_2(self):
        for arguments in ([], ["fly"], ["distance", "1", "2", "3"], ["distance", "1", "2", "3", "4", "5"],
                          ["distance", "a", "b", "c", "d"], ["distance", "--by", "foot", "1", "2", "3", "4"],
                          ["xy", "--zone", "5", "1", "2"], ["lonlat", "1", "2"], ["bearing", "--by", "chord"]):
            with self.subTest(arguments=arguments):
                done = self.run_tarn("geo", *arguments, input="")
                self.assertEqual(done.returncode, 2)
                self.assertNotEqual(done.stderr, "")

    def test_a_full_disk_is_an_error(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([self.tarn, "geo", "shift", "1", "2"], stdout=full, check=False)
        self.assertEqual(done.returncode, 1)


class GeodesyPage(support.TestCase):
    def operations(self):
        text = (support.SOURCE / "include/Tarn/Generic/ConvertLonLat.h").read_text()
        code = re.sub("//.*", "", text[text.index("class TARN_API"):text.index("private:")])
        return set(re.findall(r"\b(\w+)\(", code)) - {"CConvertLonLat"}

    def test_every_operation_has_a_row_of_a_table(self):
        self.assertGreater(len(self.operations()), 50)
        page = (support.SOURCE / "docs/geodesy.md").read_text().partition("\n## Speed")[0]
        named = set()
        for row in re.findall(r"^\|(.*?)\|", page, re.MULTILINE):
            named.update(re.findall(r"`(\w+)`", row))
        self.assertEqual(self.operations() - named, set(), "no row")
        self.assertEqual(named - self.operations(), set(), "no such operation")


if __name__ == "__main__":
    unittest.main()
