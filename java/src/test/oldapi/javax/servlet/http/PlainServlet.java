package javax.servlet.http;

public final class PlainServlet extends HttpServlet {
}
