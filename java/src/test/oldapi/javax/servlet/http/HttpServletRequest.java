package javax.servlet.http;

public interface HttpServletRequest extends javax.servlet.ServletRequest {
    String getContextPath();

    String getRequestURI();

    String getRemoteUser();
}
