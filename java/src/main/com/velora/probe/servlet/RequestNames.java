package com.velora.probe.servlet;

/** What a request is called, so that the same work has the same name today and after the next restart. */
public final class RequestNames {
    private static final String SESSION = "jsessionid=";

    /** Keep session ids in URLs: they are secrets, and make a URL of its own for every visitor. */
    public static volatile boolean keepSessionIds;

    private RequestNames() {
    }

    /** The servlet's class where it has no name, or one that its container made up from its class and hash code. */
    static String ofServlet(Object servlet, String configured) {
        String type = servlet.getClass().getName();
        return configured == null || isMadeUp(configured, type) ? type : configured;
    }

    /** As in "demo.Hello-1b6d3586". */
    private static boolean isMadeUp(String name, String type) {
        int dash = type.length();
        if (name.length() < dash + 2 || !name.startsWith(type) || (name.charAt(dash) != '-' && name.charAt(dash) != '@')) {
            return false;
        }
        for (int i = dash + 1; i < name.length(); i++) {
            if (Character.digit(name.charAt(i), 16) < 0) {
                return false;
            }
        }
        return true;
    }

    /** The address without the path parameters that carry a session's id. */
    static String ofUrl(String url) {
        if (url == null || keepSessionIds) {
            return url;
        }
        int at = url.indexOf(';');
        while (at >= 0) {
            if (url.regionMatches(true, at + 1, SESSION, 0, SESSION.length())) {
                int end = at + 1;
                while (end < url.length() && ";/?".indexOf(url.charAt(end)) < 0) {
                    end++;
                }
                url = url.substring(0, at) + url.substring(end);
                at = url.indexOf(';', at);
            } else {
                at = url.indexOf(';', at + 1);
            }
        }
        return url;
    }
}
