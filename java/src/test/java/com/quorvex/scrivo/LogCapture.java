/* Test hook: the library's log lines, collected through its log sink. */
package com.quorvex.scrivo;

import java.util.Arrays;
import java.util.List;

final class LogCapture {
    static { System.load(System.getProperty("scrivo.testhooks.path")); }

    private LogCapture() {}

    static native void start();

    static native void stop();

    private static native String[] lines();

    static List<String> collected() { return Arrays.asList(lines()); }
}
