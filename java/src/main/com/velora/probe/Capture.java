package com.velora.probe;

/**
 * One begin and one end for every kind of timed call. Whoever began a call on a thread ends it on the same thread,
 * innermost first. Nothing here throws; while the probe is disabled or capture is stopped the calls do nothing.
 */
public final class Capture {
    /** The kinds, with the texts that each takes, in their order. */
    public static final int SERVLET = 4; // name, application, url, user
    public static final int EJB = 5; // class, method, descriptor
    public static final int SQL = 7; // data source, statement
    public static final int JMS = 9; // server, queue or topic, selector; number: 1 receive, 2 browse, 3 send, 4 publish
    public static final int JCA = 10; // information system
    public static final int JNDI = 11; // provider url, name
    public static final int MAIL = 12; // server url, subject
    public static final int PORTAL_PAGE = 22; // name, application, url, user
    public static final int PORTAL_PORTLET = 23; // name, application, url, user
    public static final int MQ = 26; // queue, queue manager; number: the action
    public static final int DOVERBFOR = 28; // name, application, url
    public static final int POLLFOREVENTS = 29; // name, application, url
    public static final int PORTAL_AUTHENTICATION = 37; // method
    public static final int PORTAL_AUTHORIZATION = 38; // method
    public static final int PORTAL_MODEL_BUILDING = 39; // method
    public static final int PORTAL_PAGE_LOADING = 40; // method
    public static final int PORTAL_PAGE_RENDERING = 41; // method
    public static final int PORTAL_ACTION = 42; // method
    public static final int PORTAL_GATEWAY_SERVLET = 43;
    public static final int IIOP_CLIENT = 45; // class, method
    public static final int IIOP_SERVER = 46; // class, method
    public static final int JDO = 47; // class, method, arguments
    public static final int WS_CLIENT = 48; // operation, application, url
    public static final int WS_PROVIDER = 49; // operation, application, url

    private Capture() {
    }

    /** The number of a text that will repeat, for {@link #beginRegistered}; 0 when the collector has no more room. */
    static native int register(String text);

    /** Whether an event was made; {@link #end} is to be called in either case. */
    public static native boolean begin(int kind, String a, String b, String c, int number);

    /** The first two texts by their numbers ({@link RegisteredTexts}; 0: none), the others as they are. */
    public static native boolean beginRegistered(int kind, int a, int b, String c, String d, int number);

    /** The number is that of the begin. A failed SERVLET is shown as an error. */
    public static native void end(int kind, int number, boolean failed);
}
