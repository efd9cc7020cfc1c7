package com.velora.probe.servlet;

import static org.junit.Assert.assertEquals;

import org.junit.Test;

/** The names that requests are given. */
public class RequestNamesTest {
    @Test
    public void sessionIdsAreCutOutOfUrlsUnlessTheyAreToBeKept() {
        String[][] cases = {
            {"/a/b", "/a/b"}, {"/a;jsessionid=1F.node0", "/a"}, {"/a;JSESSIONID=1/b;v=2", "/a/b;v=2"},
            {"/a;v=1;jsessionid=1;w=2", "/a;v=1;w=2"}, {"/a;jsessionid=1;jsessionid=2?q", "/a?q"},
            {"/a;xjsessionid=1", "/a;xjsessionid=1"}, {"/a;", "/a;"}, {null, null}};
        for (String[] each : cases) {
            assertEquals(each[1], RequestNames.ofUrl(each[0]));
        }
        RequestNames.keepSessionIds = true;
        try {
            assertEquals("/a;jsessionid=1", RequestNames.ofUrl("/a;jsessionid=1"));
        } finally {
            RequestNames.keepSessionIds = false;
        }
    }

    @Test
    public void aNameThatTheContainerMadeUpGivesWayToTheClass() {
        String type = getClass().getName();
        String[][] cases = {
            {"Hello", "Hello"}, {null, type}, {type + "-1b6d3586", type}, {type + "@ff", type}, {type, type},
            {type + "-", type + "-"}, {type + "-second", type + "-second"}};
        for (String[] each : cases) {
            assertEquals(each[1], RequestNames.ofServlet(this, each[0]));
        }
    }
}
