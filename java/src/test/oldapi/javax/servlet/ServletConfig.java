package javax.servlet;

public interface ServletConfig {
    String getServletName();
}
