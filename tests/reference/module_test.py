"""What the Python module makes of failures, odd texts and lists; the tests on emulated machines read devices by it."""
import unittest

import torvane


class Module(unittest.TestCase):
    def test_a_failure_is_raised_with_the_librarys_words(self):
        with self.assertRaises(torvane.Error) as told, torvane.drives(torvane.DriveOptions.GEOMETRY):
            pass
        self.assertEqual((told.exception.category, told.exception.text),
                         (torvane.TORVANE_ERROR_DRIVE_LIST, "no drive names specified"))

    def test_bytes_that_are_no_text_and_lists_come_back(self):
        self.assertEqual(torvane.trim_new("  a\udcff  "), "a\udcff")
        strings = torvane.StringList()
        self.assertEqual([torvane.add_to_string_list(strings, word) for word in ("a", "b")], [0, 0])
        self.assertEqual(strings.strings, ["a", "b"])
        torvane.release_string_list(strings)


if __name__ == "__main__":
    unittest.main()
