package javax.servlet;

/** As much of the old servlet API as the probe touches: no package of this Debian release carries it. */
public interface ServletRequest {
    Object getAttribute(String name);
}
