package javax.servlet.http;

import javax.servlet.ServletConfig;
import javax.servlet.ServletRequest;
import javax.servlet.ServletResponse;

/** Shaped as the real one: the public method casts, in a try of its own, and calls the protected one. */
public abstract class HttpServlet {
    public ServletConfig config;

    public ServletConfig getServletConfig() {
        return config;
    }

    public void service(ServletRequest request, ServletResponse response) {
        HttpServletRequest httpRequest;
        HttpServletResponse httpResponse;
        try {
            httpRequest = (HttpServletRequest) request;
            httpResponse = (HttpServletResponse) response;
        } catch (ClassCastException e) {
            throw new IllegalArgumentException("non-HTTP request or response");
        }
        if (httpRequest.getRequestURI().endsWith("/early")) {
            return;
        }
        service(httpRequest, httpResponse);
    }

    protected void service(HttpServletRequest request, HttpServletResponse response) {
        throw new UnsupportedOperationException("nothing served");
    }
}
