/* Shared helpers of the host-class tests: the sample photograph and log matching. */
package com.quorvex.scrivo;

import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import android.graphics.Point;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.regex.Pattern;

final class TestSupport {
    private TestSupport() {}

    /**
     * The repository's sample photograph, else a development photograph; skips when neither
     * exists.
     */
    static Path photo() {
        Path sample =
            Path.of(System.getProperty("scrivo.source.dir", "."), "samples", "page-on-desk.jpg");
        if (Files.isRegularFile(sample)) return sample;
        Path dev = Path.of(
            System.getProperty("scrivo.test.data.dir", "/nonexistent"), "synth-dev", "0001.jpg");
        assumeTrue(Files.isRegularFile(dev), "no sample photograph");
        return dev;
    }

    static void loadLibrary() {
        try {
            Class.forName(
                "com.quorvex.scrivo.QuorvexScrivo", true, TestSupport.class.getClassLoader());
        } catch (ClassNotFoundException e) {
            throw new AssertionError(e);
        }
    }

    static byte[] photoBytes() throws IOException { return Files.readAllBytes(photo()); }

    static Point[] quad(int... xy) {
        Point[] points = new Point[xy.length / 2];
        for (int i = 0; i < points.length; ++i) points[i] = new Point(xy[2 * i], xy[2 * i + 1]);
        return points;
    }

    /**
     * Compares log lines with templates: text is literal except "%d" (any
     * integer); a template starting with "re:" is a regular expression.
     */
    static void assertLines(List<String> expected, List<String> actual) {
        String message = "expected\n  " + String.join("\n  ", expected) + "\nactual\n  "
            + String.join("\n  ", actual);
        assertTrue(expected.size() == actual.size(), message);
        for (int i = 0; i < expected.size(); ++i) {
            assertTrue(toPattern(expected.get(i)).matcher(actual.get(i)).matches(),
                "line " + i + ": " + message);
        }
    }

    private static Pattern toPattern(String template) {
        if (template.startsWith("re:")) return Pattern.compile(template.substring(3));
        StringBuilder regex = new StringBuilder();
        String[] parts = template.split("%d", -1);
        for (int i = 0; i < parts.length; ++i) {
            if (i > 0) regex.append("-?\\d+");
            regex.append(Pattern.quote(parts[i]));
        }
        return Pattern.compile(regex.toString());
    }

    static boolean contains(byte[] data, String text) {
        byte[] needle = text.getBytes(java.nio.charset.StandardCharsets.ISO_8859_1);
    outer:
        for (int i = 0; i + needle.length <= data.length; ++i) {
            for (int j = 0; j < needle.length; ++j) {
                if (data[i + j] != needle[j]) continue outer;
            }
            return true;
        }
        return false;
    }
}
